#pragma once

namespace murmurly {

// The remote-control options of the command line, each one method of the running program's
// D-Bus interface (DBusControl).
struct ControlOption {
    const char* name; // the option, without its dashes
    const char* method;
    const char* description;
};

inline constexpr ControlOption controlOptions[] = {
    {"press", "Press", "Start dictating in the running Murmurly, as pressing the trigger key does."},
    {"release", "Release",
     "Stop dictating and insert the text, as letting go of the trigger key does (hold mode; in toggle "
     "mode the next --press stops)."},
    {"toggle", "Toggle",
     "Start dictating, or stop the dictation being recorded and insert its text, whatever the capture "
     "mode."},
    {"cancel", "Cancel", "Throw the dictation being recorded away; nothing is inserted."},
    {"settings", "OpenSettings", "Open the settings window of the running Murmurly."},
};

} // namespace murmurly
