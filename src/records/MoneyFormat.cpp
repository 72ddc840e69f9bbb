#include "records/MoneyFormat.h"

namespace murmurly::MoneyFormat {

QString dollars(double amount) {
    if (amount == 0.0) return QStringLiteral("$0.00");
    if (amount < 0.01) return QString::asprintf("$%.4f", amount);
    return QString::asprintf("$%.2f", amount);
}

} // namespace murmurly::MoneyFormat
