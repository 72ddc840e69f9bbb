#include "settings/SettingsLayout.h"

#include <QFormLayout>

namespace murmurly::SettingsLayout {

void applyFormStyle(QFormLayout* layout) {
    layout->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    layout->setFormAlignment(Qt::AlignLeft | Qt::AlignTop);
    layout->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    layout->setRowWrapPolicy(QFormLayout::DontWrapRows);
    layout->setHorizontalSpacing(12);
    layout->setVerticalSpacing(10);
}

} // namespace murmurly::SettingsLayout
