#pragma once

#include "output/ReplacementRule.h"
#include "output/ReplacementStore.h"
#include "platform/linux/IniDefaults.h"

#include <QString>

namespace murmurly::testing {

// Writes `from` → `to` as the one replacement rule, with replacements on, into the preferences
// file the program reads at start (that of the current home).
inline void storeReplacementRule(const QString& from, const QString& to) {
    IniDefaults defaults(IniDefaults::defaultFilePath());
    ReplacementStore store(defaults);
    ReplacementRule rule = ReplacementRule::create();
    rule.from = from;
    rule.to = to;
    store.setRules({rule});
    store.setEnabled(true);
}

} // namespace murmurly::testing
