// Reading configuration files, side by side with other readers: one generated file of 10,000 keys in 100 sections,
// the whole file into memory, and one value out of the file on disk.
#include <cstdio>
#include <string>

#include "peers.h"
#include "ratios.h"
#include "sample.h"
#include "sandbox.h"

namespace bench {
namespace {

Peer *g_peers = nullptr;

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
    for (const char *name : {"iniparser", "inih", "GKeyFile"})
        if (!takes_part(name))
            std::printf("%s is left out: its library was not installed when this was built\n", name);
}

}  // namespace

const Peer *peers() {
    return g_peers;
}

bool add_peer(Peer &peer) noexcept {
    peer.next = g_peers;
    g_peers = &peer;
    return true;
}

}  // namespace bench

int main(int argc, char **argv) {
    support::enter_sandbox();
    const support::SmallDisk disk(16 << 20);
    const std::string path = disk.file("sample.conf", bench::sample_text(bench::kSections, bench::kKeys));
    bench::name_left_out();
    if (!bench::agree(path))
        return 1;

    bench::add_rows(path);
    std::set<std::string> storing_nothing;
    for (const bench::Peer *peer = bench::peers(); peer != nullptr; peer = peer->next)
        if (!peer->stores)
            storing_nothing.insert(peer->name);
    return bench::run(argc, argv, "conf", {{"parse", 3.0, storing_nothing}, {"get", 10.0, {}}});
}
