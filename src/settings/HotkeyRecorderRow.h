#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace murmurly {

class AppController;
class HotkeyRecorder;
class KeyEventTranslator;

// The field of the General tab's "Trigger" row: the current trigger's name and a button that
// records a new one. The warning about keys that type characters is a separate label, shown only
// when it applies, that the form places under the row.
class HotkeyRecorderRow : public QWidget {
    Q_OBJECT

public:
    static inline const QString promptText = QStringLiteral("Press a key or modifier\u2026 (Esc to cancel)");

    HotkeyRecorderRow(AppController& controller, const KeyEventTranslator& translator,
                      QWidget* parent = nullptr);
    ~HotkeyRecorderRow() override;

    HotkeyRecorder& recorder() const { return *m_recorder; }
    QLabel* triggerLabel() const { return m_trigger; }
    QPushButton* button() const { return m_button; }
    QLabel* warningLabel() const { return m_warning; }

protected:
    // A recording does not outlive the window: the monitor runs again when the row is hidden.
    void hideEvent(QHideEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void update();
    // The height the wrapped label needs at its width, as its minimum: the forms and scroll area
    // around the row do not always pass a wrapping label's height for its width on, and the
    // second line of the prompt was then cut off.
    void fitTriggerHeight();

    AppController& m_controller;
    HotkeyRecorder* m_recorder;
    QLabel* m_trigger;
    QPushButton* m_button;
    QLabel* m_warning;
};

} // namespace murmurly
