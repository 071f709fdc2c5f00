#include "target.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "sandbox.h"
#include "simplog.h"

namespace fuzz {
namespace {

naive::Messages recorded;

// Takes one message: the log writes and flushes each at once, and the stream's buffer holds the longest.
ssize_t record_message(void *, const char *data, size_t size) {
    constexpr size_t kStamp = sizeof "[2024-01-31 13:04:05] " - 1;
    std::string message(data, size);
    message.erase(0, kStamp);

    const size_t open = message.find('(');
    const size_t digits = message.find_first_not_of("0123456789", open + 1);
    if (open == std::string::npos || digits == open + 1 || message[digits] != ')')
        fail("a message without a source line: " + shown(message));

    recorded.push_back(message.replace(open + 1, digits - open - 1, "#"));
    return static_cast<ssize_t>(size);
}

// The log's record is transparent, so a handle can be made around any stream.
void catch_messages() {
    static char buffer[32 * 1024];
    cookie_io_functions_t functions{};
    functions.write = record_message;
    auto *log = static_cast<Simp_Log *>(std::calloc(1, sizeof(Simp_Log) + 1));
    log->fpLog = fopencookie(nullptr, "w", functions);
    std::setvbuf(log->fpLog, buffer, _IOFBF, sizeof buffer);
    log->idTimeFormat = 24;
    log->idDateFormat = 3;
    g_ptslLog = log;
    g_idLogLevel = 3;
}

std::string listed(const naive::Messages &messages) {
    std::string text;
    for (const std::string &message : messages)
        text += "\n  message " + shown(message);
    return text;
}

}  // namespace

std::string take_argument(std::string_view &input) {
    const size_t end = std::min(input.find('\n'), input.size());
    const std::string line(input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
    return naive::up_to_nul(line);
}

void write_file(const std::string &path, std::string_view content) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0 || write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        fail("can't write " + path);
    close(file);
}

std::optional<std::string> read_file(const std::string &path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return std::nullopt;

    struct stat status {};
    fstat(file, &status);
    std::string content(static_cast<size_t>(status.st_size), '\0');
    if (read(file, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        fail("can't read " + path);
    close(file);
    return content;
}

naive::Messages take_messages() {
    return std::exchange(recorded, {});
}

std::vector<naive::Section> copy_of(const Sect_Node *conf) {
    std::vector<naive::Section> sections;
    for (; conf != nullptr; conf = conf->pNext) {
        naive::Section section{conf->szName, {}};
        for (const Pair_Node *pair = conf->pPairs; pair != nullptr; pair = pair->pNext)
            section.pairs.push_back({pair->szKey, pair->pszValue});
        sections.push_back(section);
    }
    return sections;
}

void check_nodes(const Sect_Node *conf, int32_t count) {
    int32_t sections = 0;
    for (; conf != nullptr; conf = conf->pNext) {
        ++sections;
        for (const Pair_Node *pair = conf->pPairs; pair != nullptr; pair = pair->pNext) {
            const char *key_end = pair->szKey + std::strlen(pair->szKey);
            const bool behind_key = pair->pszValue == key_end + 1;
            const bool in_key = pair->pszValue + std::strlen(pair->pszValue) == key_end;
            if (!behind_key && !in_key)
                fail("a value that is not in its node: " + shown(pair->szKey));
        }
    }
    if (sections != count)
        fail("result " + std::to_string(count) + " for " + std::to_string(sections) + " sections");
}

std::string shown(const std::string &text) {
    std::string quoted = "\"";
    for (const char byte : text) {
        char code[8];
        std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(byte));
        if (byte == '\n')
            quoted += "\\n";
        else if (byte == '\\' || byte == '"')
            quoted += std::string("\\") + byte;
        else
            quoted += byte < ' ' || byte == '\x7f' ? code : std::string(1, byte);
    }
    return quoted + "\"";
}

std::string shown(const naive::Parsed &parsed) {
    std::string text = std::to_string(parsed.sections.size()) + " sections";
    for (const naive::Section &section : parsed.sections) {
        text += "\n  section " + shown(section.name);
        for (const naive::Pair &pair : section.pairs)
            text += "\n    " + shown(pair.key) + " = " + shown(pair.value);
    }
    return text + listed(parsed.messages);
}

std::string shown(const naive::Got &got) {
    return "result " + std::to_string(got.result) + ", size " + std::to_string(got.size) + ", value " +
           shown(got.value) + listed(got.messages);
}

std::string shown(const naive::Edited &edited) {
    return "result " + std::to_string(edited.result) + ", file " + (edited.file ? shown(*edited.file) : "missing") +
           listed(edited.messages);
}

void fail(const std::string &what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    support::enter_sandbox();
    mkdir(fuzz::kFolder, 0755);
    fuzz::catch_messages();
    return 0;
}
