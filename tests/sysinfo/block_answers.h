// Lines as the block-identification tool prints them, and the library's answers as texts.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "guarded_buffer.h"
#include "sysinfo.h"

namespace sysinfo_test {

inline const char *const kRealLines =
    "/dev/sda1: LABEL=\"boot\" UUID=\"d0f5-11\" TYPE=\"ext4\" PARTUUID=\"6b-01\"\n"
    "/dev/sda2: UUID=\"91c2\" TYPE=\"swap\"\n"
    "/dev/sdb1: LABEL=\"My Book\" UUID=\"E02C-11F8\" SEC_TYPE=\"msdos\" TYPE=\"vfat\" PARTUUID=\"0a-01\"\n"
    "/dev/sde: PTUUID=\"5f\" PTTYPE=\"gpt\"\n"
    "warning: this is no device\n"
    "nothing\n"
    "/dev/mapper/cachedev1: UUID=\"7a1f-22\" TYPE=\"xfs\" \n";

inline void release_blocks(Block_Info *list) {
    while (list != nullptr) {
        Block_Info *const next = list->pNext;
        std::free(list);
        list = next;
    }
}

inline std::vector<std::string> texts_of(const Block_Info *list) {
    std::vector<std::string> texts;
    for (const Block_Info *block = list; block != nullptr; block = block->pNext)
        texts.push_back(std::string(block->pszDevice) + '|' + block->pszUuid + '|' + block->pszType + '|' +
                        block->szType2);
    return texts;
}

inline std::vector<std::string> scan_blocks() {
    Block_Info *list = nullptr;
    EXPECT_EQ(Scan_Block_Device_Info(&list), 0);
    const std::vector<std::string> texts = texts_of(list);
    release_blocks(list);
    return texts;
}

// What a question answers: the three texts, or the error and those of them that are not empty.
struct Answer {
    support::GuardedBuffer first;  // UUID or device
    support::GuardedBuffer label;
    support::GuardedBuffer type;
    int32_t result;

    std::string text() const {
        const std::string texts = first.text() + '|' + label.text() + '|' + type.text();
        return result == 0 ? texts : std::to_string(result) + (texts == "||" ? "" : " " + texts);
    }
    bool fits(size_t size) const { return first.written() <= size && label.written() <= 16 && type.written() <= 12; }
};

inline std::string by_path(const std::string &device) {
    Answer answer;
    answer.result =
        Query_Block_Info_By_Path(device.c_str(), answer.first.data(), answer.label.data(), answer.type.data());
    EXPECT_TRUE(answer.fits(40)) << device;
    return answer.text();
}

inline std::string by_id(const std::string &uuid) {
    Answer answer;
    answer.result = Query_Block_Info_By_Id(uuid.c_str(), answer.first.data(), answer.label.data(), answer.type.data());
    EXPECT_TRUE(answer.fits(24)) << uuid;
    return answer.text();
}

inline const std::string kNoDevice = std::to_string(-ENODEV);

}  // namespace sysinfo_test
