// Configurations read from files and streams, and written to them.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "conf_rules.h"
#include "conf_scenarios.h"
#include "conffile.h"
#include "messages_conffile.h"

namespace faults {
namespace {

// Nodes of "c = 3\n\n", as the writer prints them, freed at the end.
class NewConf {
  public:
    NewConf() {
        Create_Sect_Node(&head_, "");
        Create_Pair_Node(&head_->pPairs, "c", "3");
    }
    ~NewConf() { Free_Sect_Node(head_); }
    NewConf(const NewConf &) = delete;
    NewConf &operator=(const NewConf &) = delete;

    const Sect_Node *get() const { return head_; }

  private:
    Sect_Node *head_ = nullptr;
};

constexpr const char *kNew = "c = 3\n\n";

// Parses into a list, which comes with success alone.
template <class Parse>
void parse(Trial &trial, Parse function) {
    auto *conf = reinterpret_cast<Sect_Node *>(&trial);
    trial.call([&] { return function(&conf); });
    trial.check((conf != nullptr) == (trial.result() > 0), "a list comes with success alone");
    Free_Sect_Node(conf);
}

// Prints to an open file, whose buffer stands beside it.
template <class Print>
std::function<void(Trial &)> printing(Print print) {
    return [print](Trial &trial) {
        FILE *stream = std::fopen(trial.path("x.conf").c_str(), "w");
        const NewConf conf;
        trial.call([&] { return print(stream, conf.get()); });
        std::fclose(stream);
    };
}

Scenarios read_scenarios() {
    // A stream that can't be read ends there, which is no failure.
    constexpr int head = 1;
    constexpr int stream_buffer = 2;
    constexpr int second_section = 4;
    const Rules stream_rules =
        join({{Rule(Call::malloc, stream_buffer).is_overlooked(), Rule(Call::fgets).gives({0, 1, 2})},
              {Rule(Call::malloc, head).says(msg::parse_no_memory("Parse_Conf_Stream")),
               Rule(Call::malloc, second_section).gives(1).says(msg::parse_no_section("Parse_Conf_Stream")),
               Rule(Call::malloc).says(msg::parse_no_pair("Parse_Conf_Stream"))}});
    return {
        {"Cache_Conf_File", "",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             auto *text = reinterpret_cast<char *>(&trial);
             trial.call([&] { return Cache_Conf_File(path.c_str(), &text); });
             trial.check(trial.result() > 0 ? std::string(text) == kConf : text == nullptr, "the text of the file");
             std::free(text);
         },
         16, cache_rules({}, {})},
        {"Parse_Conf_Cache", "",
         [](Trial &trial) {
             std::string text = kConf;
             parse(trial, [&](Sect_Node **conf) { return Parse_Conf_Cache(text.data(), conf); });
         },
         2, parse_rules("Parse_Conf_Cache", 1, 1 /* no file is read */)},
        {"Parse_Conf_Stream", "",
         [](Trial &trial) {
             FILE *stream = std::fopen(trial.file("x.conf", "a = 1\n[s]\nb = 2\n").c_str(), "r");
             parse(trial, [&](Sect_Node **conf) { return Parse_Conf_Stream(stream, conf); });
             std::fclose(stream);
         },
         2, stream_rules},
        {"Read_Conf_File", "",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             parse(trial, [&](Sect_Node **conf) { return Read_Conf_File(path.c_str(), conf); });
         },
         2, join({cache_rules({msg::read_not_cached}, {}), parse_rules("Parse_Conf_Cache", 1)})},
    };
}

Scenarios write_scenarios() {
    // The print functions report nothing. A stream that finds no memory for a buffer puts out each piece at once.
    const Rules print_rules = {
        Rule({Call::fprintf, Call::fputc}).is_overlooked(),
        Rule(Call::malloc)
            .is_overlooked()
            .leaves(Files::as_unharmed, {holding(kConfEntry, "c = 3\n"), holding(kConfEntry, kNew)})};
    constexpr int new_stream = 1;
    constexpr int stream_buffer = 2;
    const Rules write_rules = {
        Rule({Call::openat, Call::fdopen, Call::ftruncate}).says(msg::write_not_opened),
        Rule(Call::malloc, new_stream).says(msg::write_not_opened),
        Rule(Call::fstat).says(msg::write_not_opened),
        Rule(Call::malloc, stream_buffer).is_overlooked(),
        Rule({Call::fprintf, Call::fputc})
            .is_overlooked()
            .leaves(Files::as_unharmed, without_a_print({"c = 3\n", "\n"})),
        Rule({Call::fclose, Call::close}).is_overlooked(),
    };
    const Rules new_file = update_rules({.nth_openat = 2, .nth_malloc = 1}, {"c = 3\n", "\n"}, {});
    const auto folder_for_update = [] {
        return Rule(Call::openat, 1).says({msg::write_not_opened, msg::update_not_written});
    };
    const auto update = [](Trial &trial, const std::string &path) {
        const NewConf conf;
        trial.call([&] { return Update_Conf_File(path.c_str(), conf.get()); });
    };
    return {
        {"Write_Pair_Node", "",
         printing([](FILE *stream, const Sect_Node *conf) { return Write_Pair_Node(stream, conf->pPairs); }), 0,
         print_rules},
        {"Write_Sect_Node", "", printing(Write_Sect_Node), 0, print_rules},
        {"Write_Conf_File", "over an old file",
         [](Trial &trial) {
             const std::string path = put_conf(trial);
             const NewConf conf;
             trial.call([&] { return Write_Conf_File(path.c_str(), conf.get()); });
         },
         0, write_rules},
        {"Update_Conf_File", "over an old file",
         [=](Trial &trial) {
             update(trial, put_conf(trial));
             if (trial.injection() == nullptr)
                 trial.check(support::read_file(trial.path("x.conf")) == kNew, "the file is written anew");
         },
         0,
         join(
             {{folder_for_update(),
               // The old bits are lost: 0666 less the umask where the file seems to be missing, else its owner's alone.
               Rule(Call::fstatat)
                   .with(ENOENT)
                   .is_overlooked()
                   .leaves(Files::as_unharmed, {with_bits(kConfEntry, 0644)})},
              look_before_making(1),
              new_file})},
        {"Update_Conf_File", "a new file", [=](Trial &trial) { update(trial, trial.path("x.conf")); }, 0,
         join({{folder_for_update()}, look_before_making(1), new_file})},
    };
}

}  // namespace

Scenarios conf_text_scenarios() {
    return join({read_scenarios(), write_scenarios()});
}

}  // namespace faults
