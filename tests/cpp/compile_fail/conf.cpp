// What owns a configuration or a transaction is not copied, and nothing of a temporary document can be kept.
#include "korvex/conf.hpp"

#include <string_view>
#include <utility>

void use(korvex::conf::document &config, korvex::conf::transaction &edit) {
    korvex::conf::document moved = std::move(config);
    korvex::conf::transaction moved_edit = std::move(edit);
    for (const auto &section : korvex::conf::document::parse("a = 1\n"))
        (void)section;
    (void)moved.find("s", "k");
    moved.set("s", "k", 1);
#ifdef MISTAKE_1
    korvex::conf::document copy = moved;  // error: deleted
#endif
#ifdef MISTAKE_2
    korvex::conf::transaction copy = moved_edit;  // error: deleted
#endif
#ifdef MISTAKE_3
    auto kept = korvex::conf::document::parse("a = 1\n").find("", "a");  // error: deleted
#endif
#ifdef MISTAKE_4
    auto kept = korvex::conf::document::parse("a = 1\n").begin();  // error: deleted
#endif
#ifdef MISTAKE_5
    moved.set("s", "k", 'c');  // error: no matching function | no matching member function
#endif
#ifdef MISTAKE_6
    (void)korvex::conf::get_as<const char *>("x", "s", "k");  // error: no matching function
#endif
}
