#pragma once

#include <QString>

namespace murmurly::MoneyFormat {

// "$0.00" for exactly zero, four decimals below one cent ("$0.0020"), otherwise two ("$0.75").
QString dollars(double amount);

} // namespace murmurly::MoneyFormat
