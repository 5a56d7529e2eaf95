#include "qkl/common/TimeText.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace QKL {
namespace {

const int MIN_YEAR = 0;
const int MAX_YEAR = 9999;
const size_t DATE_TIME_LENGTH = 19;  // "YYYY-MM-DDThh:mm:ss"
const size_t ZONE_LENGTH = 6;        // "+hh:mm"

// "YYYY-MM-DDThh:mm:ss" for the UTC fields of t; empty when the year is out of range.
std::string formatUtc(long t) {
    time_t tt = static_cast<time_t>(t);
    struct tm fields;
    if (gmtime_r(&tt, &fields) == nullptr) return std::string();
    const long year = fields.tm_year + 1900L;
    if (year < MIN_YEAR || year > MAX_YEAR) return std::string();
    char text[64];
    std::snprintf(text, sizeof text, "%04ld-%02d-%02dT%02d:%02d:%02d", year, fields.tm_mon + 1, fields.tm_mday,
                  fields.tm_hour, fields.tm_min, fields.tm_sec);
    return std::string(text);
}

// Reads `count` decimal digits at text; false on anything else.
bool digits(const char* text, int count, int& value) {
    value = 0;
    for (int i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

bool isLeapYear(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int daysInMonth(int year, int month) {
    static const int DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : DAYS[month - 1];
}

// "YYYY-MM-DDThh:mm:ss" at text (at least DATE_TIME_LENGTH readable bytes
// are not assumed: the separators stop the scan at a NUL) into UTC seconds.
bool parseDateTime(const char* text, long& out) {
    int y, mo, d, h, mi, s;
    if (!digits(text, 4, y) || text[4] != '-' || !digits(text + 5, 2, mo) || text[7] != '-' ||
        !digits(text + 8, 2, d) || text[10] != 'T' || !digits(text + 11, 2, h) || text[13] != ':' ||
        !digits(text + 14, 2, mi) || text[16] != ':' || !digits(text + 17, 2, s))
        return false;
    if (mo < 1 || mo > 12 || d < 1 || d > daysInMonth(y, mo) || h > 23 || mi > 59 || s > 59) return false;
    struct tm fields;
    std::memset(&fields, 0, sizeof fields);
    fields.tm_year = y - 1900;
    fields.tm_mon = mo - 1;
    fields.tm_mday = d;
    fields.tm_hour = h;
    fields.tm_min = mi;
    fields.tm_sec = s;
    out = static_cast<long>(timegm(&fields));
    return true;
}

// "", "Z" or "+hh:mm"/"-hh:mm" (the whole rest of the text) into minutes east of UTC.
bool parseZone(const char* text, int& zone) {
    if (text[0] == 0) { zone = 0; return true; }
    if (text[0] == 'Z' && text[1] == 0) { zone = 0; return true; }
    int h, m;
    if ((text[0] != '+' && text[0] != '-') || !digits(text + 1, 2, h) || text[3] != ':' ||
        !digits(text + 4, 2, m) || text[ZONE_LENGTH] != 0 || h > 23 || m > 59)
        return false;
    zone = (text[0] == '-' ? -1 : 1) * (h * 60 + m);
    return true;
}

}  // namespace

std::string time2str(long time) { return formatUtc(time); }

std::string time2strZone(long time, int zone) {
    if (zone < -MAX_ZONE_MINUTES || zone > MAX_ZONE_MINUTES) return std::string();
    long wallClock;
    if (__builtin_add_overflow(time, zone * 60L, &wallClock)) return std::string();
    std::string text = formatUtc(wallClock);
    if (text.empty()) return text;
    const int minutes = zone < 0 ? -zone : zone;
    char designator[16];
    std::snprintf(designator, sizeof designator, "%c%02d:%02d", zone < 0 ? '-' : '+', minutes / 60, minutes % 60);
    return text + designator;
}

long str2time(const char* text, int& zone) {
    long wallClock;
    int parsedZone;
    if (text == nullptr || !parseDateTime(text, wallClock) || !parseZone(text + DATE_TIME_LENGTH, parsedZone))
        return -1;
    zone = parsedZone;
    return wallClock - parsedZone * 60L;
}

long str2time(const char* text) {
    int zone;
    return str2time(text, zone);
}

}  // namespace QKL
