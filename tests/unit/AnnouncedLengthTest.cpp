#include "core/AnnouncedLength.h"

#include <gtest/gtest.h>

using namespace murmurly;

TEST(AnnouncedLengthTest, ABodyOfTheAnnouncedLengthIsWhole) {
    EXPECT_FALSE(endsShortOfAnnouncedLength(QVariant(qint64(4060)), QByteArray(), 4060));
    EXPECT_FALSE(endsShortOfAnnouncedLength(QVariant(qint64(0)), QByteArray(), 0));
}

TEST(AnnouncedLengthTest, ABodyCutBeforeTheAnnouncedLengthEndsShort) {
    EXPECT_TRUE(endsShortOfAnnouncedLength(QVariant(qint64(4060)), QByteArray(), 20));
    EXPECT_TRUE(endsShortOfAnnouncedLength(QVariant(qint64(4060)), QByteArrayLiteral("identity"), 4059));
    EXPECT_TRUE(endsShortOfAnnouncedLength(QVariant(qint64(1)), QByteArray(), 0));
}

TEST(AnnouncedLengthTest, WithoutAnAnnouncedLengthNothingEndsShort) {
    EXPECT_FALSE(endsShortOfAnnouncedLength(QVariant(), QByteArray(), 0));
    EXPECT_FALSE(endsShortOfAnnouncedLength(QVariant(QStringLiteral("many")), QByteArray(), 0));
}

// Eleven bytes of JSON take more than eleven once compressed: the announced length is not theirs.
TEST(AnnouncedLengthTest, ACompressedBodyIsNotMeasuredAgainstItsCompressedLength) {
    EXPECT_FALSE(endsShortOfAnnouncedLength(QVariant(qint64(31)), QByteArrayLiteral("gzip"), 11));
    EXPECT_FALSE(endsShortOfAnnouncedLength(QVariant(qint64(31)), QByteArrayLiteral(" Deflate "), 11));
}
