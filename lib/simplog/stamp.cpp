#include "stamp.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "base/handles.h"

namespace korvex::simplog {
namespace {

// A stamp and all that it depends on. Making one takes longer than writing its line, and it changes once a second.
struct Stamp {
    time_t second;
    int32_t hour_clock;
    int32_t date_format;
    bool has_zone;  // TZ was set, to `zone`
    bool kept;      // this is the stamp of a line that was written
    char zone[48];
    char text[kStampSize];
};

// As small as this, it finds room in a program that loads the library late, too. initial-exec: see base/log_wait.h.
[[gnu::tls_model("initial-exec")]] constinit thread_local Stamp t_stamp{};

bool is_of(const Stamp &stamp, time_t second, const char *zone, int32_t hour_clock, int32_t date_format) {
    return stamp.kept && stamp.second == second && stamp.hour_clock == hour_clock && stamp.date_format == date_format &&
           stamp.has_zone == (zone != nullptr) && (zone == nullptr || std::strcmp(stamp.zone, zone) == 0);
}

// A zone that there is no room for is not kept: each line then has its stamp made.
void make(Stamp &stamp, time_t second, const char *zone, int32_t hour_clock, int32_t date_format) {
    const ErrnoKeeper keeper;
    const size_t length = zone != nullptr ? std::strlen(zone) : 0;
    stamp.kept = length < sizeof stamp.zone;
    if (stamp.kept && zone != nullptr)
        std::memcpy(stamp.zone, zone, length + 1);

    stamp.second = second;
    stamp.hour_clock = hour_clock;
    stamp.date_format = date_format;
    stamp.has_zone = zone != nullptr;
    Log_DateTime_Format(second, stamp.text, hour_clock, date_format);
}

}  // namespace

size_t put_stamp(char *text, int32_t hour_clock, int32_t date_format) {
    Stamp &stamp = t_stamp;
    const time_t now = std::time(nullptr);
    const char *zone = std::getenv("TZ");  // NOLINT(concurrency-mt-unsafe): as tzset reads it
    if (!is_of(stamp, now, zone, hour_clock, date_format))
        make(stamp, now, zone, hour_clock, date_format);

    std::memcpy(text, stamp.text, kStampSize);
    return std::strlen(text);
}

}  // namespace korvex::simplog
