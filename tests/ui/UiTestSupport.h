#pragma once

#include "ControllerHarness.h"
#include "settings/InputDeviceName.h"

#include <QAbstractButton>
#include <QDir>
#include <QLabel>
#include <QMenu>
#include <QStringList>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <ostream>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace murmurly::uitest {

using namespace std::chrono_literals;

// The current input as the test sets it.
class FakeInputDeviceName final : public InputDeviceName {
public:
    std::optional<QString> currentInputName() override {
        ++reads;
        return name;
    }
    std::optional<QString> name = QStringLiteral("Built-in Microphone");
    int reads = 0;
};

// The menu as a user sees it: visible items top to bottom, "---" for a divider.
inline QStringList visibleItems(const QMenu& menu) {
    QStringList items;
    for (const QAction* action : menu.actions()) {
        if (!action->isVisible()) continue;
        items.append(action->isSeparator()
                         ? QStringLiteral("---")
                         : action->text().replace(QStringLiteral("&&"), QStringLiteral("&")));
    }
    return items;
}

inline QAction* findAction(const QMenu& menu, const QString& text) {
    for (QAction* action : menu.actions())
        if (action->text() == text) return action;
    return nullptr;
}

// Texts of the visible labels under `root`, in the order they were made (top to bottom).
inline QStringList visibleLabelTexts(const QWidget* root) {
    QStringList texts;
    for (const QLabel* label : root->findChildren<QLabel*>())
        if (label->isVisibleTo(root) && !label->text().isEmpty()) texts.append(label->text());
    return texts;
}

inline QAbstractButton* findButton(const QWidget* root, const QString& text) {
    for (QAbstractButton* button : root->findChildren<QAbstractButton*>())
        if (button->text() == text && button->isVisibleTo(root)) return button;
    return nullptr;
}

// Clicks a check box where its box is drawn (a check box that spans a row is only clickable
// on its box and text, not in the middle of the row).
inline void clickCheckBox(QAbstractButton* box) {
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
}

// Writes the image to the screenshot folder; the answer is the file's path.
inline QString saveScreenshot(const QImage& image, const QString& name) {
    const QString dir = QStringLiteral(MURMURLY_SCREENSHOT_DIR);
    QDir().mkpath(dir);
    const QString path = dir + QLatin1Char('/') + name + QStringLiteral(".png");
    EXPECT_TRUE(image.save(path)) << qPrintable(path);
    return path;
}

inline QString saveScreenshot(QWidget* widget, const QString& name) {
    return saveScreenshot(widget->grab().toImage(), name);
}

// One hold-to-talk dictation through the fakes, from the press to the end of the insertion.
inline void dictate(murmurly::testing::ControllerHarness& harness, const QString& transcript) {
    AppController& controller = harness.controller();
    harness.speech.script.finalResults = {TranscriptionResult{transcript, true}};
    controller.pttPressed();
    harness.settle();
    harness.advance(500ms);
    controller.pttReleased();
    harness.settle();
    // Each wait on the way (the transcript, the clipboard's restore) falls due as time moves on.
    for (int i = 0; i < 20 && controller.state() != DictationState::idle; ++i)
        harness.advance(100ms);
    EXPECT_EQ(controller.state(), DictationState::idle);
}

} // namespace murmurly::uitest
