#include "settings/SettingsWindow.h"

#include "settings/SettingsLayout.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QListWidget>
#include <QScreen>
#include <QScrollArea>
#include <QStackedWidget>

namespace murmurly {

SettingsWindow::SettingsWindow(const QList<SettingsPage>& pages, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_sidebar(new QListWidget(this))
    , m_stack(new QStackedWidget(this)) {
    setWindowTitle(QStringLiteral("Murmurly Settings"));
    setObjectName(QStringLiteral("settings"));
    setMinimumSize(SettingsLayout::minimumWindowSize);

    m_sidebar->setFixedWidth(SettingsLayout::sidebarWidth);
    m_sidebar->setIconSize(QSize(18, 18));
    m_sidebar->setSpacing(1);
    m_sidebar->setFrameShape(QFrame::NoFrame);
    m_sidebar->setAccessibleName(QStringLiteral("Settings sections"));
    m_sidebar->setSelectionMode(QAbstractItemView::SingleSelection);
    m_sidebar->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The sidebar reads as a panel beside the page, as in the desktop's own settings windows.
    m_sidebar->setBackgroundRole(QPalette::Window);
    m_sidebar->viewport()->setBackgroundRole(QPalette::Window);

    for (const SettingsPage& page : pages) {
        auto* item = new QListWidgetItem(page.icon, page.title, m_sidebar);
        item->setSizeHint(QSize(0, 30));
        // Each page scrolls on its own when the window is shorter than the page.
        auto* scroller = new QScrollArea(m_stack);
        scroller->setWidgetResizable(true);
        scroller->setFrameShape(QFrame::NoFrame);
        scroller->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        scroller->setFocusPolicy(Qt::NoFocus); // Tab goes from the sidebar straight to the page
        scroller->setWidget(page.widget);
        scroller->setAccessibleName(page.title);
        page.widget->setAccessibleName(page.title);
        m_stack->addWidget(scroller);
        m_pages.append(page.widget);
    }

    auto* divider = new QFrame(this);
    divider->setFrameShape(QFrame::VLine);
    divider->setFrameShadow(QFrame::Sunken);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_sidebar);
    layout->addWidget(divider);
    layout->addWidget(m_stack, 1);

    connect(m_sidebar, &QListWidget::currentRowChanged, m_stack, &QStackedWidget::setCurrentIndex);
    if (!pages.isEmpty()) m_sidebar->setCurrentRow(0);
    m_sidebar->setFocus();
    resize(sizeHint());
}

int SettingsWindow::pageCount() const {
    return static_cast<int>(m_pages.size());
}

int SettingsWindow::currentIndex() const {
    return m_sidebar->currentRow();
}

void SettingsWindow::setCurrentIndex(int index) {
    m_sidebar->setCurrentRow(index);
}

QWidget* SettingsWindow::page(const QString& title) const {
    for (int i = 0; i < m_sidebar->count(); ++i)
        if (m_sidebar->item(i)->text() == title) return m_pages.at(i);
    return nullptr;
}

bool SettingsWindow::selectPage(const QString& title) {
    for (int i = 0; i < m_sidebar->count(); ++i) {
        if (m_sidebar->item(i)->text() == title) {
            m_sidebar->setCurrentRow(i);
            return true;
        }
    }
    return false;
}

void SettingsWindow::showAndRaise() {
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void SettingsWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ActivationChange && !isActiveWindow()) emit deactivated();
    QWidget::changeEvent(event);
}

QSize SettingsWindow::sizeHint() const {
    // As large as the largest page wants, within the minimum and most of the screen.
    QSize content(0, 0);
    for (const QWidget* page : m_pages)
        content = content.expandedTo(page->sizeHint());
    QSize wanted(SettingsLayout::sidebarWidth + 2 + content.width(), content.height());
    wanted = wanted.expandedTo(SettingsLayout::minimumWindowSize);
    if (const QScreen* screen = this->screen() ? this->screen() : QGuiApplication::primaryScreen()) {
        const QSize room = screen->availableSize() * 9 / 10;
        wanted = wanted.boundedTo(room).expandedTo(SettingsLayout::minimumWindowSize);
    }
    return wanted;
}

} // namespace murmurly
