// A snapshot as gauges, in the text that both the OpenMetrics standard and the older form of it allow.
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "output/shown_name.h"
#include "snapshot/snapshot.h"

namespace korvex::cli::snapshot {
namespace {

using Labels = std::vector<std::pair<const char *, Json>>;

// A label's value: text as it is shown, so that nothing in it ends the line or steers a terminal.
std::string label_text(const Json &value) {
    if (value.is_null())
        return "";
    const std::string text = shown(value.is_string() ? value.get<std::string>() : value.dump());
    std::string escaped;
    for (const char byte : text)
        escaped += byte == '\\' || byte == '"' ? std::string{'\\', byte} : std::string(1, byte);
    return escaped;
}

class Metrics {
  public:
    // A unit, where there is one, must end the name.
    void family(const std::string &name, const std::string &unit, const std::string &help) {
        name_ = name;
        seen_.clear();
        text_ += "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n";
        if (!unit.empty())
            text_ += "# UNIT " + name + " " + unit + "\n";
    }

    // A series may appear only once: of two with the same name the first is written.
    void sample(const Labels &labels, const Json &value) {
        std::string series = name_;
        for (size_t i = 0; i < labels.size(); ++i)
            series += (i == 0 ? "{" : ",") + std::string(labels[i].first) + "=\"" + label_text(labels[i].second) + "\"";
        series += labels.empty() ? "" : "}";
        if (seen_.insert(series).second)
            text_ += series + " " + value.dump() + "\n";
    }

    std::string end() { return std::move(text_) + "# EOF\n"; }

  private:
    std::string name_;
    std::string text_;
    std::set<std::string> seen_;
};

// The seconds since 1970 of "2026-11-22T05:38:12Z".
int64_t seconds_of(const std::string &taken) {
    tm parts{};
    return strptime(taken.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts) == nullptr ? 0 : timegm(&parts);
}

// The elements of a part; none where it could not be read.
const Json &list_of(const Json &document, const char *part) {
    static const Json none = Json::array();
    const Json &list = document[part];
    return list.is_null() ? none : list;
}

void add_snapshot(Metrics &metrics, const Json &document) {
    metrics.family("korvex_snapshot_timestamp_seconds", "seconds", "When the snapshot was taken.");
    metrics.sample({}, seconds_of(document["taken"]));
    metrics.family("korvex_snapshot_part_readable", "", "Whether a part of the snapshot could be read.");
    for (const Part &part : parts())
        metrics.sample({{"part", part.name}}, document[part.name].is_null() ? 0 : 1);
}

void add_mounts(Metrics &metrics, const Json &document) {
    metrics.family("korvex_mount_info", "", "A mounted file system.");
    for (const Json &mount : list_of(document, "mounts"))
        metrics.sample({{"device", mount["device"]}, {"path", mount["path"]}, {"type", mount["type"]}}, 1);
}

void add_volumes(Metrics &metrics, const Json &document) {
    const Json &volumes = list_of(document, "volumes");
    const auto labels = [](const Json &volume) {
        return Labels{{"device", volume["device"]}, {"path", volume["mount_path"]}};
    };
    metrics.family("korvex_volume_size_bytes", "bytes", "The size of a mounted volume.");
    for (const Json &volume : volumes)
        metrics.sample(labels(volume), volume["total_bytes"]);
    metrics.family("korvex_volume_free_bytes", "bytes", "What unprivileged users may still write to a volume.");
    for (const Json &volume : volumes)
        metrics.sample(labels(volume), volume["free_bytes"]);
}

void add_shares(Metrics &metrics, const Json &document) {
    const Json &shares = list_of(document, "shares");
    metrics.family("korvex_share_info", "", "A shared folder.");
    for (const Json &share : shares) {
        std::string flags;
        for (const Json &flag : share["flags"])
            flags += (flags.empty() ? "" : ",") + flag.get<std::string>();
        metrics.sample({{"share", share["name"]}, {"flags", flags}, {"mode", share["mode"]}}, 1);
    }
    metrics.family("korvex_share_free_bytes", "bytes", "What is free on a share's volume, for root, too.");
    for (const Json &share : shares)
        metrics.sample({{"share", share["name"]}}, share["free_bytes"]);
}

void add_blocks(Metrics &metrics, const Json &document) {
    metrics.family("korvex_block_info", "", "What is on a block device.");
    for (const Json &block : list_of(document, "blocks"))
        metrics.sample({{"device", block["device"]}, {"uuid", block["uuid"]}, {"type", block["type"]}}, 1);
}

void add_interfaces(Metrics &metrics, const Json &document) {
    metrics.family("korvex_interface_up", "", "Whether a network interface is up.");
    for (const Json &interface : list_of(document, "interfaces"))
        metrics.sample({{"interface", interface["name"]}, {"mac", interface["mac"]}}, interface["up"] == true ? 1 : 0);
}

void add_locks(Metrics &metrics, const Json &document) {
    const Json &locks = list_of(document, "locks");
    metrics.family("korvex_locks", "", "How many locks are of a status.");
    for (const char *status : {"held", "stale", "incomplete", "blocked", "unreadable"}) {
        int count = 0;
        for (const Json &lock : locks)
            count += lock["status"] == status ? 1 : 0;
        metrics.sample({{"status", status}}, count);
    }
    metrics.family("korvex_lock_age_seconds", "seconds", "How long ago a lock was asked for.");
    for (const Json &lock : locks)
        if (!lock["age_ms"].is_null())
            metrics.sample({{"name", lock["name"]}, {"kind", lock["kind"]}, {"status", lock["status"]}},
                           lock["age_ms"].get<double>() / 1000);
}

}  // namespace

std::string open_metrics(const Json &document) {
    // Bytes that are not UTF-8 are replaced, as they are where a document is printed.
    const Json clean = Json::parse(document.dump(-1, ' ', false, Json::error_handler_t::replace));
    Metrics metrics;
    add_snapshot(metrics, clean);
    add_mounts(metrics, clean);
    add_volumes(metrics, clean);
    add_shares(metrics, clean);
    add_blocks(metrics, clean);
    add_interfaces(metrics, clean);
    add_locks(metrics, clean);
    return metrics.end();
}

}  // namespace korvex::cli::snapshot
