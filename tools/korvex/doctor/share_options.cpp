// smb.conf, whose sections say how each share is shown.
#include <cerrno>
#include <map>
#include <string>
#include <string_view>

#include "cli.h"
#include "conf/conf_text.h"
#include "doctor/check.h"

namespace korvex::cli::doctor {
namespace {

constexpr const char *kUsualFolder = "/etc/config";
constexpr size_t kLimit = 16 << 20;

std::string at(const std::string &path, size_t line) {
    return path + ":" + std::to_string(line);
}

// The name as the parser reads it: up to the first bracket.
std::string section_name(std::string_view header) {
    return std::string(header.substr(1, header.find(']') - 1));
}

void find_bad_lines(Findings &findings, const std::string &path, const std::vector<Line> &lines) {
    const Line *first = nullptr;
    size_t count = 0;
    for (const Line &line : lines) {
        if (line.kind == LineKind::nul_byte)
            findings.fail(at(path, line.number) + ": " + fault(line.kind), "write the file anew without that byte");
        else if (fault(line.kind) != nullptr && ++count == 1)
            first = &line;
    }
    if (first != nullptr)
        findings.warn(at(path, first->number) + ": " + fault(first->kind) +
                          (count > 1 ? ", and " + std::to_string(count - 1) + " more such lines" : ""),
                      "such lines are passed over; see them all: korvex conf check " + shell_word(path));
}

size_t find_sections_twice(Findings &findings, const std::string &path, const std::vector<Line> &lines) {
    std::map<std::string, size_t> first_lines;
    for (const Line &line : lines) {
        if (line.kind != LineKind::header)
            continue;
        const std::string name = section_name(line.text);
        const auto [first, is_new] = first_lines.emplace(name, line.number);
        if (!is_new)
            findings.warn(at(path, line.number) + ": the section [" + name + "] is there already, in line " +
                              std::to_string(first->second) + ", which alone is read",
                          "make one section of the two");
    }
    return first_lines.size();
}

// Carriage returns become part of the values where some lines end in one and others don't.
void find_odd_bytes(Findings &findings, const std::string &path, const std::string &text,
                    const std::vector<Line> &lines) {
    if (text.starts_with("\xEF\xBB\xBF"))
        findings.warn(path + " begins with a byte order mark, which hides its first section from some programs",
                      "save it without the mark: sed -i '1s/^\\xEF\\xBB\\xBF//' " + shell_word(path));

    size_t with_return = 0;
    for (const Line &line : lines)
        with_return += line.text.ends_with('\r') ? 1 : 0;
    if (with_return > 0 && with_return < lines.size())
        findings.warn(path + " has " + std::to_string(with_return) + " of " + std::to_string(lines.size()) +
                          " lines that end in a carriage return",
                      "remove them: sed -i 's/\\r$//' " + shell_word(path));
}

void report_options(Findings &findings, const std::string &path) {
    int error = 0;
    const std::string text = content_of(path, kLimit, error);
    if (error != 0)
        return findings.fail(path + ": " + error_text(error), "without it every share counts as hidden");

    const size_t before = findings.all().size();
    const std::vector<Line> lines = classified_lines(text);
    find_odd_bytes(findings, path, text, lines);
    find_bad_lines(findings, path, lines);
    const size_t sections = find_sections_twice(findings, path, lines);
    if (findings.all().size() == before)
        findings.ok(path + " has " + count_text(sections, "section", "sections"));
}

}  // namespace

void check_share_options(const Places &places, Findings &findings) {
    for (const std::string &folder : places.configurations) {
        struct stat status {};
        const std::string path = folder + "/smb.conf";
        if (stat(path.c_str(), &status) == 0 || errno != ENOENT)
            report_options(findings, path);
        else if (folder == kUsualFolder && stat(folder.c_str(), &status) == 0)
            findings.warn(path + " is missing", "make it: without it every share counts as hidden");
    }
}

}  // namespace korvex::cli::doctor
