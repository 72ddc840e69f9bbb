// The focused application of the platform tests, and the second X client that tells what reached
// it: a window with one line edit that has the keyboard focus. It writes one line per fact on
// stdout and takes commands on stdin.
//
//   --class NAME   the window's WM_CLASS class (a terminal's, say), and its app id on Wayland
//   --terminal     behave like a terminal emulator: paste on Ctrl+Shift+V, swallow Ctrl+V
//
// Output: "ready" once the line edit has the focus; "text BASE64" whenever its text changes;
// "press SYM MODS" / "release SYM MODS" for every key event reaching it (SYM the keysym in hex,
// MODS letters of Shift, Control, Alt, Meta or "-", then " repeat" for an auto-repeat); for
// "clip-show" the lines "clip N", N times "type MIME BASE64", then "clipend"; "done COMMAND" after
// every other command.
//
// Commands: "clip-image" (a PNG picture with a plain-text twin), "clip-several" (four types:
// plain text, HTML, a URI list and a type of its own), "clip-text BASE64", "clip-clear",
// "clip-show", "set-text BASE64" (the line edit's text), "focus".
#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QElapsedTimer>
#include <QImage>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QSocketNotifier>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdio>
#include <unistd.h>

namespace {

void say(const QByteArray& line) {
    std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

QByteArray modifierLetters(Qt::KeyboardModifiers modifiers) {
    QByteArray letters;
    if (modifiers & Qt::ShiftModifier) letters += 'S';
    if (modifiers & Qt::ControlModifier) letters += 'C';
    if (modifiers & Qt::AltModifier) letters += 'A';
    if (modifiers & Qt::MetaModifier) letters += 'M';
    return letters.isEmpty() ? QByteArray("-") : letters;
}

QByteArray pictureBytes() {
    QImage image(4, 4, QImage::Format_RGB32);
    image.fill(Qt::red);
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return buffer.data();
}

class KeyReporter : public QObject {
public:
    KeyReporter(QLineEdit* field, bool terminal)
        : m_field(field)
        , m_terminal(terminal) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (watched != m_field || (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease))
            return false;
        const auto* key = static_cast<QKeyEvent*>(event);
        QByteArray line = event->type() == QEvent::KeyPress ? "press " : "release ";
        line += QByteArray::number(key->nativeVirtualKey(), 16) + ' ' + modifierLetters(key->modifiers());
        if (key->isAutoRepeat()) line += " repeat";
        say(line);
        if (m_terminal && key->key() == Qt::Key_V && (key->modifiers() & Qt::ControlModifier)) {
            // A terminal pastes on Ctrl+Shift+V; a plain Ctrl+V goes to the program in it.
            if (event->type() == QEvent::KeyPress && (key->modifiers() & Qt::ShiftModifier))
                m_field->insert(QGuiApplication::clipboard()->text());
            return true;
        }
        return false;
    }

private:
    QLineEdit* m_field;
    bool m_terminal;
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    const qsizetype classAt = args.indexOf(QStringLiteral("--class"));
    if (classAt >= 0 && classAt + 1 < args.size()) {
        QCoreApplication::setApplicationName(args.at(classAt + 1));
        QGuiApplication::setDesktopFileName(args.at(classAt + 1));
    }
    const bool terminal = args.contains(QStringLiteral("--terminal"));

    QWidget window;
    window.setWindowTitle(QStringLiteral("Text field"));
    auto* layout = new QVBoxLayout(&window);
    auto* field = new QLineEdit(&window);
    layout->addWidget(field);
    KeyReporter reporter(field, terminal);
    field->installEventFilter(&reporter);
    QObject::connect(field, &QLineEdit::textChanged,
                     [](const QString& text) { say("text " + text.toUtf8().toBase64()); });
    window.resize(400, 80);
    window.show();
    window.activateWindow();
    field->setFocus();

    // "ready" once the window really has the keyboard focus.
    QTimer readiness;
    QObject::connect(&readiness, &QTimer::timeout, [&] {
        if (window.isActiveWindow() && field->hasFocus()) {
            readiness.stop();
            say("ready");
        } else {
            window.activateWindow();
        }
    });
    readiness.start(20);

    QClipboard* clipboard = QGuiApplication::clipboard();
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char buffer[4096];
        const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
        if (got <= 0) {
            app.quit(); // the test is gone
            return;
        }
        pending.append(buffer, got);
        qsizetype end;
        while ((end = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(end);
            pending.remove(0, end + 1);
            const QList<QByteArray> words = line.split(' ');
            const QByteArray command = words.value(0);
            const QByteArray argument = QByteArray::fromBase64(words.value(1));
            if (command == "clip-image") {
                auto* data = new QMimeData;
                data->setData(QStringLiteral("image/png"), pictureBytes());
                data->setData(QStringLiteral("text/plain"), "a red square");
                clipboard->setMimeData(data);
            } else if (command == "clip-several") {
                auto* data = new QMimeData;
                data->setData(QStringLiteral("text/plain"), "four kinds");
                data->setData(QStringLiteral("text/html"), "<b>four</b> kinds");
                data->setData(QStringLiteral("text/uri-list"), "file:///tmp/four-kinds\r\n");
                data->setData(QStringLiteral("application/x-four-kinds"), QByteArray("\x00\x01\x02\xff", 4));
                clipboard->setMimeData(data);
            } else if (command == "clip-text") {
                clipboard->setText(QString::fromUtf8(argument));
            } else if (command == "clip-clear") {
                clipboard->clear();
            } else if (command == "clip-show") {
                const QMimeData* data = clipboard->mimeData();
                const QStringList formats = data ? data->formats() : QStringList();
                say("clip " + QByteArray::number(formats.size()));
                for (const QString& format : formats)
                    say("type " + format.toUtf8() + ' ' + data->data(format).toBase64());
                say("clipend");
                continue;
            } else if (command == "set-text") {
                field->setText(QString::fromUtf8(argument));
            } else if (command == "focus") {
                // Answered once the field has the keyboard focus again (or after two seconds).
                window.activateWindow();
                field->setFocus();
                QElapsedTimer waited;
                waited.start();
                while (!(window.isActiveWindow() && field->hasFocus()) && waited.elapsed() < 2000)
                    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
            }
            say("done " + command);
        }
    });
    return app.exec();
}
