// Parse_Conf_Stream on any stream: its lists, count and messages are the model's.
#include <algorithm>

#include "target.h"

namespace {

// Hands the input to the stream; fmemopen would end it at its first NUL.
ssize_t read_input(void *cookie, char *buffer, size_t size) {
    auto &input = *static_cast<std::string_view *>(cookie);
    const size_t length = std::min(size, input.size());
    input.copy(buffer, length);
    input.remove_prefix(length);
    return static_cast<ssize_t>(length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view input = fuzz::bytes(data, size);
    const std::string text(input);

    cookie_io_functions_t functions{};
    functions.read = read_input;
    FILE *stream = fopencookie(&input, "r", functions);
    Sect_Node *conf = nullptr;
    const int32_t count = Parse_Conf_Stream(stream, &conf);
    std::fclose(stream);

    fuzz::compare(naive::parse_stream(text), {fuzz::copy_of(conf), fuzz::take_messages()});
    fuzz::check_nodes(conf, count);
    Free_Sect_Node(conf);
    return 0;
}
