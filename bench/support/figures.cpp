#include "figures.h"

#include <cstdlib>
#include <iterator>
#include <stdexcept>

namespace bench {
namespace {

// NOLINTBEGIN(concurrency-mt-unsafe): nobody changes the environment while figures are kept.

FILE *opened() {
    const char *path = std::getenv("KORVEX_BENCH_CSV");
    if (path == nullptr)
        return nullptr;
    FILE *file = std::fopen(path, "ae");
    if (file == nullptr)
        throw std::runtime_error(std::string("can't append to ") + path);
    return file;
}

FILE *csv() {
    static FILE *file = opened();
    return file;
}

std::string quoted(const std::string &text) {
    std::string field = "\"";
    for (const char character : text)
        field += character == '"' ? std::string("\"\"") : std::string(1, character);
    return field + "\"";
}

}  // namespace

void open_record() {
    (void)csv();
}

void record(const Figure &figure) {
    FILE *file = csv();
    if (file == nullptr)
        return;

    char ratio[32] = "";
    if (!std::isnan(figure.ratio))
        std::snprintf(ratio, sizeof ratio, "%.4f", figure.ratio);
    std::fprintf(file, "%s,%s,%s,%.6g,%s,%s,%s,%s\n", figure.family.c_str(), quoted(figure.job).c_str(),
                 quoted(figure.side).c_str(), figure.value, figure.unit.c_str(), ratio, figure.aim.c_str(),
                 figure.measure.c_str());
    // Before a child is made, which would write what is pending once more.
    std::fflush(file);
}

size_t rounds(size_t usual) {
    const char *fewer = std::getenv("KORVEX_BENCH_ROUNDS");
    const size_t wanted = fewer == nullptr ? usual : std::strtoul(fewer, nullptr, 10);
    return std::clamp(wanted, size_t{1}, usual);
}

std::vector<size_t> sizes(const std::vector<size_t> &usual) {
    const char *largest = std::getenv("KORVEX_BENCH_LARGEST");
    if (largest == nullptr)
        return usual;
    std::vector<size_t> small = {usual.front()};
    std::copy_if(usual.begin() + 1, usual.end(), std::back_inserter(small),
                 [limit = std::strtoul(largest, nullptr, 10)](size_t size) { return size <= limit; });
    return small;
}

// NOLINTEND(concurrency-mt-unsafe)

}  // namespace bench
