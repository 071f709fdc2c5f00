#include "sample.h"

namespace bench {

std::string section_name(size_t number) {
    return "sect" + std::to_string(number);
}

std::string key_name(size_t number) {
    return "key" + std::to_string(number);
}

std::string value_of(size_t section, size_t key) {
    std::string id = std::to_string(section * 1000 + key);
    switch (key % 4) {
        case 0:
            return id;
        case 1:
            return "yes";
        case 2:
            return "/share/folder" + id + "/data";
        default:
            return "a description of entry " + id + " in plain words";
    }
}

std::string sample_text(size_t sections, size_t keys_per_section) {
    std::string text = "# generated\n";
    for (size_t section = 0; section < sections; ++section) {
        text += "\n# section " + std::to_string(section) + "\n[" + section_name(section) + "]\n";
        for (size_t key = 0; key < keys_per_section; ++key)
            text += key_name(key) + " = " + value_of(section, key) + "\n";
    }
    return text;
}

}  // namespace bench
