#include "log_capture.h"

#include <cstdlib>
#include <regex>

namespace support {

LogCapture::LogCapture(int32_t level) : outer_log_(g_ptslLog), outer_level_(g_idLogLevel) {
    stream_ = open_memstream(&text_, &size_);
    // The record is transparent, so a handle can be made around any stream; an empty path watches no lock but ".lck".
    log_ = static_cast<Simp_Log *>(std::calloc(1, sizeof(Simp_Log) + 1));
    log_->fpLog = stream_;
    log_->idTimeFormat = 24;
    log_->idDateFormat = 3;
    g_ptslLog = log_;
    g_idLogLevel = level;
}

LogCapture::~LogCapture() {
    g_ptslLog = outer_log_;
    g_idLogLevel = outer_level_;
    std::fclose(stream_);
    std::free(text_);
    std::free(log_);
}

std::vector<std::string> LogCapture::messages() {
    static const std::regex stamp(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] )");
    static const std::regex source_line(R"(^(\[(?:error|debug)\] \w+)\(\d+\): )");
    std::fflush(stream_);
    const std::string all(text_ + begin_, size_ - begin_);

    std::vector<std::string> messages;
    auto match = std::sregex_iterator(all.begin(), all.end(), stamp);
    while (match != std::sregex_iterator()) {
        const auto begin = static_cast<size_t>(match->position() + match->length());
        ++match;
        const auto end = match == std::sregex_iterator() ? all.size() : static_cast<size_t>(match->position());
        messages.push_back(std::regex_replace(all.substr(begin, end - begin), source_line, "$1(#): "));
    }
    return messages;
}

void LogCapture::clear() {
    std::fflush(stream_);
    begin_ = size_;
}

}  // namespace support
