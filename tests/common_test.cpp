// The companion library (libQKLCommon): the interfaces listed under "Platform
// interfaces" in spec.md, with the properties the Parts rely on.
#include "qkl/common/QKLCommon.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <set>
#include <thread>
#include <vector>

namespace {

int g_handlerCalls = 0;
std::string g_lastCondition;
void countingHandler(const char* condition, const char*, int) {
    ++g_handlerCalls;
    g_lastCondition = condition;
}

TEST(CommonAssert, ReportsAndReturnsWithConditionText) {
    QKL::AssertHandler previous = QKL::setAssertHandler(&countingHandler);
    unsigned long before = QKL::assertReports();
    int after = 0;
    QKL_ASSERT(1 + 1 == 3);
    after = 1;  // reached: the assertion returns
    QKL_ASSERT(true);
    QKL::setAssertHandler(previous);
    EXPECT_EQ(after, 1);
    EXPECT_EQ(QKL::assertReports(), before + 1);
    EXPECT_EQ(g_handlerCalls, 1);
    EXPECT_EQ(g_lastCondition, "1 + 1 == 3");
}

TEST(CommonAssert, DefaultHandlerWritesConditionFileAndLine) {
    testing::internal::CaptureStderr();
    QKL_ASSERT(false && "visible");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("false && \"visible\""), std::string::npos);
    EXPECT_NE(err.find("common_test.cpp:"), std::string::npos);
}

TEST(CommonLock, GuardsACounterAcrossThreads) {
    QKL::QKLLock lock;
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 100000; ++i) {
            lock.lock();
            ++counter;
            lock.unlock();
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 200000);
}

TEST(CommonBase64, EncodesRfc4648Vectors) {
    EXPECT_EQ(QKL::Base64::encode(""), "");
    EXPECT_EQ(QKL::Base64::encode("f"), "Zg==");
    EXPECT_EQ(QKL::Base64::encode("fo"), "Zm8=");
    EXPECT_EQ(QKL::Base64::encode("foo"), "Zm9v");
    EXPECT_EQ(QKL::Base64::encode("foob"), "Zm9vYg==");
    EXPECT_EQ(QKL::Base64::encode("fooba"), "Zm9vYmE=");
    EXPECT_EQ(QKL::Base64::encode("foobar"), "Zm9vYmFy");
    EXPECT_EQ(QKL::Base64::encode(std::string("\xff\xfe\x00", 3)), "//4A");
}

TEST(CommonBase64, DecodesWhatItEncodesForEveryLengthAndByte) {
    std::string data;
    for (int i = 0; i < 300; ++i) data.push_back(static_cast<char>(i * 37 + 11));
    for (size_t n = 0; n <= data.size(); ++n) {
        std::string text = QKL::Base64::encode(data.substr(0, n));
        std::string back = "stale";
        ASSERT_EQ(QKL::Base64::decode(text.data(), int(text.size()), &back), 0) << n;
        EXPECT_EQ(back, data.substr(0, n)) << n;
    }
}

TEST(CommonBase64, DecodeRefusesMalformedText) {
    std::string out;
    const char* bad[] = {"Zg=", "Zg", "Z===", "Zm9v!A==", "Zg==Zg==", "=Zg=", "Zm 9v", "Zm9\xc3"};
    for (const char* text : bad)
        EXPECT_NE(QKL::Base64::decode(text, int(std::strlen(text)), &out), 0) << text;
    EXPECT_NE(QKL::Base64::decode(std::string("Zm\0v", 4).data(), 4, &out), 0);
    EXPECT_NE(QKL::Base64::decode(nullptr, 4, &out), 0);
    EXPECT_NE(QKL::Base64::decode("Zm9v", -4, &out), 0);
    EXPECT_NE(QKL::Base64::decode("Zm9v", 4, nullptr), 0);
    EXPECT_EQ(QKL::Base64::decode(nullptr, 0, &out), 0);
    EXPECT_EQ(out, "");
}

TEST(CommonBase64, DecodeReadsOnlyTheGivenLength) {
    std::string out;
    EXPECT_EQ(QKL::Base64::decode("Zm9vYmFy", 4, &out), 0);
    EXPECT_EQ(out, "foo");
}

TEST(CommonNumbers, IntegersAreDecimal) {
    EXPECT_EQ(QKL::intToStr(0), "0");
    EXPECT_EQ(QKL::intToStr(-42), "-42");
    EXPECT_EQ(QKL::intToStr(std::numeric_limits<int>::min()), "-2147483648");
    EXPECT_EQ(QKL::longlongToStr(std::numeric_limits<long long>::max()), "9223372036854775807");
    EXPECT_EQ(QKL::longlongToStr(std::numeric_limits<long long>::min()), "-9223372036854775808");
}

TEST(CommonNumbers, DoubleTextReadsBackExactlyWithSscanf) {
    const double values[] = {0.0, -0.0, 0.1, 1.0 / 3.0, 12.0, -1e-300, 1e300, 5e-324,
                             std::numeric_limits<double>::max(), 123456789.125, 2.0 / 3.0 * 1e17};
    for (double v : values) {
        std::string text = QKL::doubleToStr(v);
        double back = 0;
        ASSERT_EQ(std::sscanf(text.c_str(), "%lf", &back), 1) << text;
        EXPECT_EQ(std::memcmp(&back, &v, sizeof v), 0) << text;
    }
    EXPECT_EQ(QKL::doubleToStr(12.0), "12");
    EXPECT_EQ(QKL::doubleToStr(0.1), "0.1");
    double inf = 0;
    EXPECT_EQ(std::sscanf(QKL::doubleToStr(HUGE_VAL).c_str(), "%lf", &inf), 1);
    EXPECT_EQ(inf, HUGE_VAL);
    double nan = 0;
    EXPECT_EQ(std::sscanf(QKL::doubleToStr(std::nan("")).c_str(), "%lf", &nan), 1);
    EXPECT_TRUE(std::isnan(nan));
}

TEST(CommonTime, UtcTextIsIso8601AndReadsBack) {
    EXPECT_EQ(QKL::time2str(0), "1970-01-01T00:00:00");
    const long t = 1795342530;  // 2026-11-22T10:15:30Z
    EXPECT_EQ(QKL::time2str(t), "2026-11-22T10:15:30");
    EXPECT_EQ(QKL::str2time("2026-11-22T10:15:30"), t);
    EXPECT_EQ(QKL::str2time("2026-11-22T10:15:30Z"), t);
    int zone = 99;
    EXPECT_EQ(QKL::str2time("2026-11-22T10:15:30", zone), t);
    EXPECT_EQ(zone, 0);
}

TEST(CommonTime, ZoneTextCarriesWallClockAndOffset) {
    const long t = 1795342530;  // 10:15:30 UTC
    EXPECT_EQ(QKL::time2strZone(t, 60), "2026-11-22T11:15:30+01:00");
    EXPECT_EQ(QKL::time2strZone(t, -330), "2026-11-22T04:45:30-05:30");
    EXPECT_EQ(QKL::time2strZone(t, 0), "2026-11-22T10:15:30+00:00");
    int zone = 0;
    EXPECT_EQ(QKL::str2time("2026-11-22T11:15:30+01:00", zone), t);
    EXPECT_EQ(zone, 60);
    EXPECT_EQ(QKL::str2time("2026-11-22T04:45:30-05:30", zone), t);
    EXPECT_EQ(zone, -330);
}

TEST(CommonTime, RoundTripsOverManyTimesAndZones) {
    for (long t = -2208988800L; t < 4102444800L; t += 86400L * 97 + 3607) {
        ASSERT_EQ(QKL::str2time(QKL::time2str(t).c_str()), t);
        for (int z : {-QKL::MAX_ZONE_MINUTES, -600, -1, 0, 1, 345, QKL::MAX_ZONE_MINUTES}) {
            int zone = 12345;
            ASSERT_EQ(QKL::str2time(QKL::time2strZone(t, z).c_str(), zone), t) << t << " " << z;
            ASSERT_EQ(zone, z);
        }
    }
}

TEST(CommonTime, TextThatIsNotATimeGivesMinusOne) {
    const char* bad[] = {"", "2026", "2026-11-22", "2026-11-22 10:15:30", "2026-13-01T00:00:00",
                         "2026-02-29T00:00:00", "2026-11-22T24:00:00", "2026-11-22T10:60:00",
                         "2026-11-22T10:15:30+1:00", "2026-11-22T10:15:30+01:00x", "2026-11-22T10:15:30 ",
                         "+026-11-22T10:15:30", "abc", "2026-11-22T10:15:30+24:00"};
    for (const char* text : bad) {
        int zone = 7;
        EXPECT_EQ(QKL::str2time(text), -1) << text;
        EXPECT_EQ(QKL::str2time(text, zone), -1) << text;
        EXPECT_EQ(zone, 7) << text;
    }
    EXPECT_EQ(QKL::str2time(nullptr), -1);
    EXPECT_NE(QKL::str2time("2024-02-29T00:00:00"), -1);
}

TEST(CommonTime, UnwritableTimesGiveEmptyText) {
    EXPECT_EQ(QKL::time2str(253402300800L), "");  // year 10000
    EXPECT_EQ(QKL::time2strZone(0, QKL::MAX_ZONE_MINUTES + 1), "");
    EXPECT_EQ(QKL::time2strZone(0, -QKL::MAX_ZONE_MINUTES - 1), "");
}

TEST(CommonCompareNoCase, IgnoresLetterCaseOnly) {
    EXPECT_EQ(QKL::compareNoCase("qkl.40500.A", "QKL.40500.a"), 0);
    EXPECT_LT(QKL::compareNoCase("abc", "abd"), 0);
    EXPECT_GT(QKL::compareNoCase("abd", "ABC"), 0);
    EXPECT_LT(QKL::compareNoCase("ab", "abc"), 0);
    EXPECT_NE(QKL::compareNoCase(std::string("a\0b", 3), std::string("a\0c", 3)), 0);
    EXPECT_EQ(QKL::compareNoCase("", ""), 0);
}

TEST(CommonGenerateID, UniqueAndWithoutDots) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        std::string id = QKL::generateID();
        EXPECT_EQ(id.size(), 36u);
        EXPECT_EQ(id.find('.'), std::string::npos);
        EXPECT_TRUE(seen.insert(id).second);
    }
}

}  // namespace
