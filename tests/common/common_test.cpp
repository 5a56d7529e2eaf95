// libQKLCommon as the message library relies on it: the assertion hook returns,
// base64 and number text read back exactly, time text round-trips with its zone.
#include "qkl/common/QKLCommon.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <set>
#include <thread>

TEST(Assert, ReportsTheConditionAndReturns) {
    const unsigned long before = QKL::assertReports();
    testing::internal::CaptureStderr();  // the default handler: one line on stderr
    QKL_ASSERT(1 + 1 == 3);
    QKL_ASSERT(true);
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(before + 1, QKL::assertReports());  // and the call returned
    EXPECT_NE(std::string::npos, line.find("1 + 1 == 3 (")) << line;
}

TEST(Lock, GuardsACounterAcrossThreads) {
    QKL::QKLLock lock;
    long counter = 0;
    auto work = [&] { for (int i = 0; i < 100000; ++i) lock.lock(), ++counter, lock.unlock(); };
    std::thread a(work), b(work);
    a.join(), b.join();
    EXPECT_EQ(200000, counter);
}

TEST(Base64, StandardVectorsRoundTripsAndMalformedText) {
    // RFC 4648 section 10, plus the characters 62 '+' and 63 '/' and a NUL byte.
    const struct { std::string bytes, text; } vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"}, {"\xfb\xff", "+/8="}, {std::string("\xff\xfe\0", 3), "//4A"}};
    std::string bytes, back = "stale";
    for (const auto& row : vectors) {
        EXPECT_EQ(row.text, QKL::Base64::encode(row.bytes));
        EXPECT_TRUE(QKL::Base64::decode(row.text.data(), int(row.text.size()), &back) == 0 && back == row.bytes)
            << row.text;
    }
    for (int i = 0; i < 300; ++i) bytes.push_back(static_cast<char>(i * 37 + 11));
    for (size_t n = 0; n <= bytes.size(); ++n) {
        const std::string text = QKL::Base64::encode(bytes.substr(0, n));
        ASSERT_EQ(0, QKL::Base64::decode(text.data(), int(text.size()), &back)) << n;
        ASSERT_EQ(bytes.substr(0, n), back) << n;
    }
    const struct { const char* text; int length; } bad[] = {
        {"Zg=", 3},  {"Zg", 2},   {"Z===", 4},    {"=Zg=", 4},  {"Zg==Zg==", 8}, {"Zm9v!A==", 8},
        {"Zm 9", 4}, {"Zm-_", 4}, {"Zm9\xc3", 4}, {"Zm\0v", 4}, {nullptr, 4},    {"Zm9v", -4}};
    for (const auto& row : bad) EXPECT_EQ(-1, QKL::Base64::decode(row.text, row.length, &back)) << &row - bad;
    EXPECT_TRUE(QKL::Base64::decode("Zm9vYmFy", 4, &back) == 0 && back == "foo");  // reads 4 characters only
}

TEST(NumberText, DoublesReadBackBitExact) {
    for (double v : {0.0, -0.0, 0.1, 1.0 / 3, -1e-300, 5e-324, 1.7976931348623157e308, 123456789.125,
                     2.0 / 3 * 1e17, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        const std::string text = QKL::doubleToStr(v);
        double back = 0;
        ASSERT_EQ(1, std::sscanf(text.c_str(), "%lf", &back)) << text;
        EXPECT_TRUE(std::isnan(v) ? std::isnan(back) : back == v && std::signbit(back) == std::signbit(v)) << text;
    }
}

TEST(TimeText, Iso8601WithAndWithoutZoneRoundTrips) {
    // 1969-12-31T23:59:59 is a real time, though the same value as a failure.
    const struct { const char* text; long time; int zone; } rows[] = {
        {"1970-01-01T00:00:00", 0, 0}, {"1969-12-31T23:59:59", -1, 0}, {"2026-11-22T10:15:30", 1795342530, 0},
        {"2026-11-22T10:15:30Z", 1795342530, 0}, {"2026-11-22T11:15:30+01:00", 1795342530, 60},
        {"2026-11-22T04:45:30-05:30", 1795342530, -330}, {"2026-11-23T00:14:30+13:59", 1795342530, 839},
        {"2024-02-29T00:00:00", 1709164800, 0}, {"0000-01-01T00:00:00", -62167219200L, 0},
        {"9999-12-31T23:59:59", 253402300799L, 0}};
    for (const auto& row : rows) {
        int zone = 12345;
        EXPECT_EQ(row.time, QKL::str2time(row.text, zone)) << row.text;
        EXPECT_EQ(row.zone, zone) << row.text;
        EXPECT_EQ(std::string(row.text).substr(0, row.zone ? 25 : 19),  // the writer gives no 'Z'
                  row.zone ? QKL::time2strZone(row.time, row.zone) : QKL::time2str(row.time));
    }
    for (long t = -2208988800L; t < 4102444800L; t += 86400L * 97 + 3607) {
        ASSERT_EQ(t, QKL::str2time(QKL::time2str(t).c_str()));
        for (int z : {-QKL::MAX_ZONE_MINUTES, -600, -1, 0, 1, 345, QKL::MAX_ZONE_MINUTES}) {
            int zone = 12345;
            ASSERT_EQ(t, QKL::str2time(QKL::time2strZone(t, z).c_str(), zone)) << t << " " << z;
            ASSERT_EQ(z, zone);
        }
    }
}

TEST(TimeText, NonTimesGiveMinusOneAndLeaveTheZone) {
    for (const char* text : {static_cast<const char*>(nullptr), "", "2026", "2026-11-22", "2026-11-22 10:15:30",
                             "2026-13-01T00:00:00", "2100-02-29T00:00:00", "2026-04-31T00:00:00", "2026-11-22T24:00:00",
                             "2026-11-22T10:60:00", "2026-11-22T10:15:60", "2026-11-22T10:15:30+1:00",
                             "2026-11-22T10:15:30+24:00", "2026-11-22T10:15:30+01:60", "2026-11-22T10:15:30+01:00x",
                             "2026-11-22T10:15:30 ", "2026-11-22T10:15:30z", "+026-11-22T10:15:30"}) {
        int zone = 7;
        EXPECT_TRUE(QKL::str2time(text, zone) == -1 && zone == 7) << text;
    }
}

TEST(CompareNoCase, IgnoresLetterCaseOnly) {
    const struct { std::string a, b; int sign; } rows[] = {
        {"qkl.40500.A", "QKL.40500.a", 0}, {"", "", 0}, {"abc", "abd", -1}, {"abd", "ABC", 1},
        {"ab", "abc", -1}, {"abc", "AB", 1}, {std::string("a\0b", 3), std::string("a\0c", 3), -1}};
    for (const auto& row : rows)
        EXPECT_EQ(row.sign, (QKL::compareNoCase(row.a, row.b) > 0) - (QKL::compareNoCase(row.a, row.b) < 0)) << row.a;
}

TEST(GenerateID, UniqueLowerCaseUuidsWithoutDots) {
    std::set<std::string> seen;
    for (std::string id; seen.size() < 1000 && seen.insert(id = QKL::generateID()).second;)
        EXPECT_TRUE(id.size() == 36 && id.find_first_not_of("0123456789abcdef-") == id.npos) << id;  // never a '.'
    EXPECT_EQ(1000u, seen.size());  // no repeat
}
