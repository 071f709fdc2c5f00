// Parse_Conf_Cache on any text: its lists, count and messages are the model's.
#include <memory>

#include "target.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(fuzz::bytes(data, size));

    // A block of exactly the text's size, so that a look behind it is seen.
    const auto cache = std::make_unique<char[]>(size + 1);
    text.copy(cache.get(), size);
    Sect_Node *conf = nullptr;
    const int32_t count = Parse_Conf_Cache(cache.get(), &conf);

    fuzz::compare(naive::parse_cache(text), {fuzz::copy_of(conf), fuzz::take_messages()});
    fuzz::check_nodes(conf, count);
    Free_Sect_Node(conf);
    return 0;
}
