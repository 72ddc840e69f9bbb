#include "TextFieldWindowProcess.h"

#include "WaitUntil.h"

namespace murmurly::testing {

namespace {

QProcessEnvironment x11Environment() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    return environment;
}

} // namespace

TextFieldWindowProcess::TextFieldWindowProcess(const QStringList& arguments)
    : TextFieldWindowProcess(arguments, x11Environment()) {
}

TextFieldWindowProcess::TextFieldWindowProcess(const QStringList& arguments,
                                               const QProcessEnvironment& environment) {
    m_process.setProcessEnvironment(environment);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, [this] { readLines(); });
    m_process.start(QStringLiteral(MURMURLY_TEXT_FIELD_WINDOW), arguments);
    waitUntil([this] { return m_ready || m_process.state() == QProcess::NotRunning; },
              std::chrono::seconds(15));
}

TextFieldWindowProcess::~TextFieldWindowProcess() {
    m_process.closeWriteChannel(); // the window quits when its input ends
    if (!m_process.waitForFinished(3000)) {
        m_process.kill();
        m_process.waitForFinished(3000);
    }
}

QStringList TextFieldWindowProcess::keyEventsOf(unsigned long keysym) const {
    const QString sym = QString::number(keysym, 16);
    QStringList events;
    for (const QString& event : m_keyEvents)
        if (event.section(QLatin1Char(' '), 1, 1) == sym) events << event;
    return events;
}

bool TextFieldWindowProcess::waitForText(const QString& text, int milliseconds) {
    return waitUntil([&] { return m_text == text; }, std::chrono::milliseconds(milliseconds));
}

bool TextFieldWindowProcess::command(const QByteArray& command, const QByteArray& argument) {
    m_done.clear();
    m_process.write(command + ' ' + argument.toBase64() + '\n');
    return waitUntil([&] { return m_done.contains(QString::fromUtf8(command)); });
}

std::optional<QList<QPair<QString, QByteArray>>> TextFieldWindowProcess::clipboard() {
    m_clipboard.reset();
    m_process.write("clip-show\n");
    waitUntil([&] { return m_clipboard.has_value(); }, std::chrono::seconds(10));
    return m_clipboard;
}

void TextFieldWindowProcess::readLines() {
    m_pending += m_process.readAllStandardOutput();
    qsizetype end;
    while ((end = m_pending.indexOf('\n')) >= 0) {
        const QByteArray line = m_pending.left(end);
        m_pending.remove(0, end + 1);
        const QList<QByteArray> words = line.split(' ');
        const QByteArray word = words.value(0);
        if (word == "ready") {
            m_ready = true;
        } else if (word == "text") {
            m_text = QString::fromUtf8(QByteArray::fromBase64(words.value(1)));
        } else if (word == "press" || word == "release") {
            m_keyEvents << QString::fromUtf8(line);
        } else if (word == "done") {
            m_done << QString::fromUtf8(words.value(1));
        } else if (word == "clip") {
            m_clipboardBeingRead.emplace();
        } else if (word == "type" && m_clipboardBeingRead) {
            m_clipboardBeingRead->append(
                {QString::fromUtf8(words.value(1)), QByteArray::fromBase64(words.value(2))});
        } else if (word == "clipend") {
            m_clipboard = m_clipboardBeingRead;
            m_clipboardBeingRead.reset();
        }
    }
}

bool TextFieldWindowProcess::waitForFocusOn(const QString& title, int milliseconds) {
    return waitUntil(
        [&] {
            QProcess xdotool;
            xdotool.start(QStringLiteral("xdotool"),
                          {QStringLiteral("getwindowfocus"), QStringLiteral("getwindowname")});
            if (!xdotool.waitForFinished(5000)) {
                xdotool.kill();
                xdotool.waitForFinished(1000);
                return false;
            }
            return xdotool.exitCode() == 0 &&
                   QString::fromUtf8(xdotool.readAllStandardOutput()).trimmed() == title;
        },
        std::chrono::milliseconds(milliseconds));
}

} // namespace murmurly::testing

namespace murmurly::testing {

bool TextFieldWindowProcess::takeFocus() {
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"),
                  {QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                   QStringLiteral("^Text field$"), QStringLiteral("windowfocus"), QStringLiteral("--sync")});
    if (!xdotool.waitForFinished(5000)) {
        xdotool.kill();
        xdotool.waitForFinished(1000);
        return false;
    }
    // The window's own view of it, once Qt has seen the focus arrive.
    return xdotool.exitCode() == 0 && command("focus");
}

} // namespace murmurly::testing
