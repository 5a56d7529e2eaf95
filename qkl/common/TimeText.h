// Time values (seconds since 1970-01-01T00:00:00 UTC) to and from one ISO 8601 text form.
//
//   time2str(t)           "YYYY-MM-DDThh:mm:ss"         the time in UTC, no zone designator
//   time2strZone(t, zone) "YYYY-MM-DDThh:mm:ss+hh:mm"   the wall-clock time at `zone`
//                                                      minutes east of UTC, then the zone
//
// How the zone is split out: str2time(text, zone) reads the date and time, then an
// optional zone designator: "+hh:mm" / "-hh:mm" gives zone = +/-(hh*60 + mm) minutes
// and the wall-clock time is converted back to UTC; "Z" or no designator gives zone 0.
// So str2time(time2strZone(t, z), zone) == t with zone == z, and
// str2time(time2str(t)) == t.
#ifndef QKL_COMMON_TIMETEXT_H
#define QKL_COMMON_TIMETEXT_H

#include <string>

namespace QKL {

// Zones are accepted from -(23*60+59) to +(23*60+59) minutes.
const int MAX_ZONE_MINUTES = 23 * 60 + 59;

// Empty when the time cannot be written (outside years 0000..9999, or a zone out of range).
std::string time2str(long time);
std::string time2strZone(long time, int zone);

// The time of the text, or -1 when the text is not a time of the form above
// (a null pointer, a wrong field, trailing characters, an impossible date such as
// February 30). Note: 1969-12-31T23:59:59 is -1 too, indistinguishable from failure.
long str2time(const char* text);
// The same, also giving the zone in minutes east of UTC (0 without a designator).
// On failure zone is left unchanged.
long str2time(const char* text, int& zone);

}  // namespace QKL

#endif
