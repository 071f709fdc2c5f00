// Reading and changing configuration files, side by side with other libraries: one generated file of 10,000 keys in 100
// sections, the whole file into memory, one value out of the file on disk, and one value changed in it. A change is a new
// file and a rename on all sides; that it is made under a lock and keeps the file's mode, the library does besides.
#include <cstdio>
#include <stdexcept>
#include <string>

#include "peers.h"
#include "ratios.h"
#include "sample.h"
#include "sandbox.h"

namespace bench {
namespace {

constexpr size_t kSections = 100;
constexpr size_t kKeys = 100;

struct Question {
    const char *name;
    std::string section;
    std::string key;
    std::optional<std::string> answer;
};

std::vector<Question> questions() {
    return {
        {"middle key", section_name(kSections / 2), key_name(kKeys / 2), value_of(kSections / 2, kKeys / 2)},
        {"last key", section_name(kSections - 1), key_name(kKeys - 1), value_of(kSections - 1, kKeys - 1)},
        {"missing key", section_name(kSections - 1), key_name(kKeys), std::nullopt},
    };
}

std::optional<std::string> ask(const Peer &peer, const std::string &path, const Question &question) {
    return peer.get(path.c_str(), question.section.c_str(), question.key.c_str());
}

// Sides that do not give the same answer must not be compared.
bool agree(const std::string &path) {
    bool all = true;
    for (const Peer *peer = peers(); peer != nullptr; peer = peer->next) {
        for (const Question &question : questions()) {
            if (peer->get == nullptr || ask(*peer, path, question) == question.answer)
                continue;
            std::fprintf(stderr, "%s gives another answer for the %s\n", peer->name, question.name);
            all = false;
        }
    }
    return all;
}

constexpr const char *kChangedSection = "sect50";
constexpr const char *kChangedKey = "key50";
constexpr const char *kNewValues[] = {"a new value", "another one"};

// Each change makes the text another one.
void change(const Peer &peer, const std::string &path) {
    static size_t changes = 0;
    if (!peer.set(path.c_str(), kChangedSection, kChangedKey, kNewValues[++changes % 2]))
        throw std::runtime_error(std::string(peer.name) + " did not change the value");
}

// What was changed must be there, and the last key must not be lost; the library looks at each peer's file.
bool changes_alike(const support::SmallDisk &disk) {
    bool all = true;
    for (const Peer *peer = peers(); peer != nullptr; peer = peer->next) {
        if (peer->set == nullptr)
            continue;
        const std::string path = disk.file("changed.conf", sample_text(kSections, kKeys));
        const Question changed = {"changed key", kChangedSection, kChangedKey, kNewValues[0]};
        if (peer->set(path.c_str(), kChangedSection, kChangedKey, kNewValues[0]) &&
            ask(korvex_peer(), path, changed) == changed.answer &&
            ask(korvex_peer(), path, questions()[1]) == questions()[1].answer)
            continue;
        std::fprintf(stderr, "%s does not change the file as the others do\n", peer->name);
        all = false;
    }
    return all;
}

void add_changes(const support::SmallDisk &disk) {
    for (const Peer *peer = peers(); peer != nullptr; peer = peer->next) {
        if (peer->set == nullptr)
            continue;
        const std::string path = disk.file(std::string(peer->name) + ".conf", sample_text(kSections, kKeys));
        add(std::string("set middle key/") + peer->name, [=] { change(*peer, path); });
    }
}

void add_rows(const std::string &path) {
    for (const Peer *peer = peers(); peer != nullptr; peer = peer->next) {
        add(std::string("parse/") + peer->name, [=] { peer->parse(path.c_str()); });
        if (peer->get == nullptr)
            continue;
        for (const Question &question : questions())
            add(std::string("get ") + question.name + "/" + peer->name, [=] { ask(*peer, path, question); });
    }
}

bool takes_part(const char *name) {
    for (const Peer *peer = peers(); peer != nullptr; peer = peer->next)
        if (std::string(name) == peer->name)
            return true;
    return false;
}

void name_left_out() {
    for (const char *name : {"iniparser", "inih", "GKeyFile", "SimpleIni", "libini_config"})
        if (!takes_part(name))
            std::printf("%s is left out: its library was not installed when this was built\n", name);
}

}  // namespace

}  // namespace bench

int main(int argc, char **argv) {
    support::enter_sandbox();
    const support::SmallDisk disk(16 << 20);
    const std::string path = disk.file("sample.conf", bench::sample_text(bench::kSections, bench::kKeys));
    bench::name_left_out();
    if (!bench::agree(path) || !bench::changes_alike(disk))
        return 1;

    bench::add_rows(path);
    bench::add_changes(disk);
    std::set<std::string> storing_nothing;
    for (const bench::Peer *peer = bench::peers(); peer != nullptr; peer = peer->next)
        if (!peer->stores)
            storing_nothing.insert(peer->name);
    return bench::run(argc, argv, "conf", {{"parse", 3.0, storing_nothing}, {"get", 10.0, {}}});
}
