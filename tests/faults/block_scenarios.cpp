// Block devices, with calls of the system failing.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "messages_sysinfo.h"
#include "sysinfo.h"
#include "sysinfo_scenarios.h"

namespace faults {
namespace {

constexpr const char *kLines =
    "/dev/sda1: LABEL=\"boot\" UUID=\"d0f5-11\" TYPE=\"ext4\"\n"
    "/dev/sda2: LABEL=\"data\" UUID=\"91c2\" TYPE=\"xfs\"\n";

void scan(Trial &trial) {
    const Appliance appliance;
    appliance.tool_prints(kLines);
    Block_Info *list = nullptr;
    trial.call([&] { return Scan_Block_Device_Info(&list); });

    int count = 0;
    while (list != nullptr) {
        Block_Info *const next = list->pNext;
        std::free(list);
        list = next;
        count++;
    }
    if (trial.injection() == nullptr)
        trial.check(count == 2, "every line is listed");
    else if (was_made_to_fail(trial, Call::popen) || was_made_to_fail(trial, Call::malloc, tool::stream))
        trial.check(count == 0, "without the tool nothing is listed");
    else if (was_made_to_fail(trial, Call::fgets))
        trial.check(count == trial.injection()->nth - 1, "what was read before is listed");
    else if (trial.result() == -ENOMEM)
        trial.check(count == trial.injection()->nth - tool::first_block, "what was read before stays in the list");
}

// Three texts, of which a failure leaves none.
class Texts {
  public:
    char *first() { return first_.data(); }
    char *label() { return label_.data(); }
    char *type() { return type_.data(); }
    void check(Trial &trial, const char *wanted) const {
        const bool done = trial.result() == 0;
        trial.check(std::strcmp(first_.data(), done ? wanted : "") == 0 &&
                        std::strcmp(label_.data(), done ? "data" : "") == 0 &&
                        std::strcmp(type_.data(), done ? "xfs" : "") == 0,
                    "the texts go with success, and are empty otherwise");
    }

  private:
    std::array<char, 40> first_ = {"untouched"};
    std::array<char, 16> label_ = {"untouched"};
    std::array<char, 12> type_ = {"untouched"};
};

void ask_by_path(Trial &trial) {
    const Appliance appliance;
    appliance.tool_prints(kLines);
    Texts texts;
    trial.call([&] { return Query_Block_Info_By_Path("/dev/sda2", texts.first(), texts.label(), texts.type()); });
    texts.check(trial, "91c2");
}

void ask_by_id(Trial &trial) {
    const Appliance appliance;
    appliance.tool_prints(kLines);
    Texts texts;
    trial.call([&] { return Query_Block_Info_By_Id("91c2", texts.first(), texts.label(), texts.type()); });
    texts.check(trial, "/dev/sda2");
}

void ask_kernel(Trial &trial) {
    const Appliance appliance;
    appliance.disk("sda", "1000\n", "Model  \n", "Vendor  \n");
    appliance.partition("sda", "sda1", "500\n");
    appliance.partition("sda", "sda2", "300\n");
    uint64_t size = 1;
    uint32_t partition = 77;
    std::array<char, 32> vendor = {"untouched"};
    std::array<char, 32> model = {"untouched"};
    trial.call([&] { return Query_Block_Device_Info("/dev/sda1", &size, &partition, vendor.data(), model.data()); });

    const Injection *injection = trial.injection();
    const bool reads = injection != nullptr && (injection->call == Call::open || injection->call == Call::read);
    const int attribute = reads ? injection->nth : 0;  // 1: the size; 2: the model; 3: the vendor
    const bool cut = reads && injection->is_short();
    trial.check(size == (attribute == 1 ? (cut ? 5 * 512 : 0) : 500 * 512), "the size is 0 where it can't be read");
    trial.check(std::string(model.data()) == (attribute == 2 ? (cut ? "M" : "") : "Model"),
                "the model is empty where it can't be read");
    trial.check(std::string(vendor.data()) == (attribute == 3 ? (cut ? "V" : "") : "Vendor"),
                "the vendor is empty where it can't be read");
    trial.check(partition == (was_made_to_fail(trial, Call::fstatat) ? 0 : 1),
                "without a second partition the first one is the disk");
}

}  // namespace

Scenarios block_scenarios() {
    const Rules scanning = {
        giving_back(),
        Rule({Call::popen, Call::realloc, Call::fgets}).gives(0),
        Rule(Call::malloc, tool::stream).gives(0),
        stream_buffer(tool::buffer),
        Rule(Call::malloc).says(msg::blocks_no_memory),
    };
    const Rules asking = {giving_back(), stream_buffer(tool::buffer), Rule().gives(-ENODEV)};
    const Rules attributes = {
        giving_back(),
        Rule(Call::read).when_short().is_overlooked(),  // what one read brings is the text
        Rule(Call::open, 3),
        Rule(Call::read, 3),
        Rule({Call::open, Call::read, Call::fstatat}).is_overlooked(),
    };
    return {
        {"Scan_Block_Device_Info", "", scan, 0, scanning},
        {"Query_Block_Info_By_Path", "", ask_by_path, 0, asking},
        {"Query_Block_Info_By_Id", "", ask_by_id, 0, asking},
        {"Query_Block_Device_Info", "", ask_kernel, 0, attributes},
    };
}

}  // namespace faults
