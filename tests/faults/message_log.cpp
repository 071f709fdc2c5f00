#include "message_log.h"

#include <dlfcn.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "faults.h"

namespace faults {
namespace {

MessageLog *g_log = nullptr;

// Takes the next value, which the conversion at `format` (behind the "%") describes, and moves on behind it.
int64_t next_value(const char *&format, va_list *arguments, std::string *text) {
    int longs = 0;
    while (std::strchr("0123456789.-+# ", *format) != nullptr || *format == 'l')
        longs += *format++ == 'l' ? 1 : 0;

    const char conversion = *format++;
    if (conversion == 's' || conversion == 'p') {
        const char *value = va_arg(*arguments, const char *);
        if (text != nullptr && conversion == 's')
            *text = value == nullptr ? "(null)" : value;
        return 0;
    }
    if (longs > 0)
        return va_arg(*arguments, long);
    return va_arg(*arguments, int);
}

}  // namespace

std::string Message::full_format() const {
    return (level == Level::error ? "[error] %s(%d): " : "[debug] %s(%d): ") + std::string(format);
}

bool Said::is(const Message &message) const {
    return function == message.function && format == message.full_format();
}

MessageLog::MessageLog(Level level)
    : log_(static_cast<Simp_Log *>(std::calloc(1, sizeof(Simp_Log) + 1))),
      outer_log_(g_ptslLog),
      outer_level_(g_idLogLevel) {
    g_log = this;
    g_ptslLog = log_;
    g_idLogLevel = static_cast<int32_t>(level);
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
    Said said;
    said.format = format;

    std::vector<char> text(16384);
    va_list copy;
    va_copy(copy, arguments);
    std::vsnprintf(text.data(), text.size(), format, copy);
    va_end(copy);
    said.text = text.data();

    va_list values;
    va_copy(values, arguments);
    int place = 0;
    for (const char *at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
        if (*++at == '%') {
            at++;
            continue;
        }
        const int64_t value = next_value(at, &values, place == 0 ? &said.function : nullptr);
        if (place++ > 1)
            said.values.push_back(value);
    }
    va_end(values);
    g_log->said_.push_back(said);
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
