#include "message_log.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "faults.h"

namespace faults {
namespace {

MessageLog *g_log = nullptr;

bool matches(const char *format, const char *text, std::vector<int64_t> &values);

// Whether the rest of the format, behind a text that may be of any length, gives the rest of the text.
bool matches_behind_text(const char *format, const char *text, std::vector<int64_t> &values) {
    const size_t known = values.size();
    for (;; text++) {
        if (matches(format, text, values))
            return true;
        values.resize(known);
        if (*text == '\0')
            return false;
    }
}

// Whether the format gives the text with some values, which are appended.
bool matches(const char *format, const char *text, std::vector<int64_t> &values) {
    for (; *format != '%'; format++, text++) {
        if (*format != *text)
            return false;
        if (*format == '\0')
            return true;
    }

    const char *conversion = format + 1 + std::strspn(format + 1, "0123456789.*-+# l");
    const char *rest = conversion + 1;
    if (*conversion == '%')
        return *text == '%' && matches(rest, text + 1, values);

    if (std::strchr("scp", *conversion) != nullptr) {
        values.push_back(0);
        return matches_behind_text(rest, text, values);
    }

    char *end = nullptr;
    values.push_back(std::strtoll(text, &end, *conversion == 'X' ? 16 : 10));
    return end != text && matches(rest, end, values);
}

}  // namespace

std::string Message::full_format() const {
    return (level == Level::error ? "[error] " : "[debug] ") + std::string(function) + "(%d): " + format;
}

std::optional<std::vector<int64_t>> Said::values_of(const Message &message) const {
    std::vector<int64_t> values;
    if (!matches(message.full_format().c_str(), text.c_str(), values))
        return std::nullopt;
    return values;
}

MessageLog::MessageLog(Level level)
    : log_(static_cast<Simp_Log *>(std::calloc(1, sizeof(Simp_Log) + 1))),
      outer_log_(g_ptslLog),
      outer_level_(g_idLogLevel) {
    g_log = this;
    g_ptslLog = level == Level::none ? nullptr : log_;
    g_idLogLevel = static_cast<int32_t>(level == Level::none ? Level::debug : level);
}

MessageLog::~MessageLog() {
    g_ptslLog = outer_log_;
    g_idLogLevel = outer_level_;
    g_log = nullptr;
    std::free(log_);
}

bool MessageLog::catches(const Simp_Log *log) {
    return g_log != nullptr && log == g_log->log_;
}

void MessageLog::take(const char *format, va_list arguments) {
    const support::Undisturbed test_only;
    std::vector<char> text(16384);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    g_log->said_.push_back({text.data()});
}

LogWriter library_log_writer() {
    static const auto real = reinterpret_cast<LogWriter>(dlsym(RTLD_NEXT, "Simp_Log_Write"));
    return real;
}

}  // namespace faults

// The library calls this one, as it would a host's.
int32_t Simp_Log_Write(Simp_Log *ptslLog, const char *pszFormat, ...) {
    va_list arguments;
    va_start(arguments, pszFormat);
    int32_t result = 0;
    if (faults::MessageLog::catches(ptslLog)) {
        faults::MessageLog::take(pszFormat, arguments);
    } else {
        std::vector<char> text(16384);
        std::vsnprintf(text.data(), text.size(), pszFormat, arguments);
        result = faults::library_log_writer()(ptslLog, "%s", text.data());
    }
    va_end(arguments);
    return result;
}
