// The two parsers: of a text in memory and of a stream. What both take alike is run through both.
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <random>

#include "conf_lists.h"
#include "conf_model.h"
#include "faults.h"
#include "heap.h"
#include "sandbox.h"

using lists::Conf;
using lists::ConfList;
using lists::ConfModel;
using lists::Dialect;
using lists::Messages;
using lists::messages_at;
using lists::Parsed;
using support::Call;
using support::CountCalls;
using support::FailCall;

namespace {

// A text as either parser wants it. The copy has no byte to spare, so that a sanitizer sees each step beyond its end.
class Input {
  public:
    Input(Dialect dialect, const std::string &text) : size_(text.size()), text_(new char[size_ + 1]) {
        std::memcpy(text_.get(), text.c_str(), size_ + 1);
        if (dialect == Dialect::stream) {
            stream_ = fmemopen(text_.get(), size_, "r");
            // With a buffer of its own the stream allocates nothing when it is read.
            std::setvbuf(stream_, buffer_.data(), _IOFBF, buffer_.size());
        }
    }
    ~Input() {
        if (stream_ != nullptr)
            std::fclose(stream_);
    }
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    int32_t parse(Sect_Node **conf) {
        return stream_ == nullptr ? Parse_Conf_Cache(text_.get(), conf) : Parse_Conf_Stream(stream_, conf);
    }
    std::string text() const { return std::string(text_.get(), size_); }

  private:
    size_t size_;
    std::unique_ptr<char[]> text_;
    std::array<char, BUFSIZ> buffer_;
    FILE *stream_ = nullptr;
};

Parsed parse(Dialect dialect, const std::string &text) {
    Input input(dialect, text);
    Sect_Node dummy{};
    Sect_Node *conf = &dummy;
    Parsed parsed;
    parsed.messages = messages_at(3, [&] { parsed.result = input.parse(&conf); });
    const ConfList owner(conf);
    parsed.conf = lists::conf_of(conf);
    return parsed;
}

Conf parse_stream(FILE *stream) {
    ConfList conf;
    const int32_t result = Parse_Conf_Stream(stream, conf.head());
    EXPECT_EQ(result, static_cast<int32_t>(lists::conf_of(conf).size()));
    return lists::conf_of(conf);
}

std::string repeat(char byte, size_t times) {
    return std::string(times, byte);
}

// The function that reports in a dialect.
std::string reporter(Dialect dialect) {
    return dialect == Dialect::cache ? "Parse_Conf_Cache(#): " : "Parse_Conf_Stream(#): ";
}

class Parser : public testing::TestWithParam<Dialect> {};
INSTANTIATE_TEST_SUITE_P(Of, Parser, testing::Values(Dialect::cache, Dialect::stream),
                         [](const auto &row) { return row.param == Dialect::cache ? "text" : "stream"; });

struct Row {
    std::string text;
    Conf conf;
};

// Expects that a text gives the nodes of its row, and altogether what the plain parser makes of it.
void expect_rows(Dialect dialect, const std::vector<Row> &rows) {
    ConfModel model(dialect);
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text.substr(0, 60)));
        const Parsed parsed = parse(dialect, row.text);
        EXPECT_EQ(parsed.conf, row.conf);
        EXPECT_EQ(parsed, model.parse(row.text));
    }
}

}  // namespace

TEST_P(Parser, takes_lines_by_their_first_byte) {
    expect_rows(GetParam(), {
                                {"", {}},
                                {"\n\n\n", {}},
                                {"   \n\t\n \t \n", {}},
                                {";k = v\n#k = v\n;\n#\n;[s]\n", {}},
                                {" ; k = v\n", {{"", {{"; k", "v"}}}}},
                                {"\t# k = v\n", {{"", {{"# k", "v"}}}}},
                                {"k = v ; kept # kept\n", {{"", {{"k", "v ; kept # kept"}}}}},
                                {"\t[s]\n", {}},
                                {" [s] = v\n", {{"", {{"[s]", "v"}}}}},
                                {"nothing\n", {}},
                                {"] = v\n", {{"", {{"]", "v"}}}}},
                            });
}

TEST_P(Parser, cuts_keys_and_values_at_the_first_equals_sign) {
    expect_rows(GetParam(), {
                                {"k = v\n", {{"", {{"k", "v"}}}}},
                                {"key = a = b\n", {{"", {{"key", "a = b"}}}}},
                                {"k == v\n", {{"", {{"k", "= v"}}}}},
                                {"k = = v\n", {{"", {{"k", "= v"}}}}},
                                {"key =\n", {{"", {{"key", ""}}}}},
                                {"key = \t \n", {{"", {{"key", ""}}}}},
                                {"  key\t=\tvalue  \n", {{"", {{"key", "value"}}}}},
                                {"\t \tmy own\tkey \t = \t a b\tc \t \n", {{"", {{"my own\tkey", "a b\tc"}}}}},
                                {"k = \"a\" 'b' \\\n", {{"", {{"k", "\"a\" 'b' \\"}}}}},
                                {"k = \v\f v\n", {{"", {{"k", "\v\f v"}}}}},
                                {"k = %s%n%d\n%s%n\n[%s\n", {{"", {{"k", "%s%n%d"}}}}},
                                {"\xff\xfe = \x80\n", {{"", {{"\xff\xfe", "\x80"}}}}},
                                {"\xa0k = v\xa0\n", {{"", {{"\xa0k", "v\xa0"}}}}},
                                {"= v\n = v\n==\n=\n\t=\n", {}},
                            });
}

TEST_P(Parser, keeps_carriage_returns) {
    expect_rows(GetParam(), {
                                {"k = v\r\n", {{"", {{"k", "v\r"}}}}},
                                {"k = v \r\n", {{"", {{"k", "v \r"}}}}},
                                {"k = v\r \n", {{"", {{"k", "v\r"}}}}},
                                {"k =\r\n", {{"", {{"k", "\r"}}}}},
                                {"k\r = v\n", {{"", {{"k\r", "v"}}}}},
                                {"\rk = v\n", {{"", {{"\rk", "v"}}}}},
                                {"[s]\r\nk = v\r\n", {{"s", {{"k", "v\r"}}}}},
                                {"[s\r]\r\n", {{"s\r", {}}}},
                                {"\r\n", {}},
                                {"\r[s]\n", {}},
                                {"k = v\rl = w\n", {{"", {{"k", "v\rl = w"}}}}},
                            });
}

TEST_P(Parser, names_sections_by_all_up_to_the_first_bracket) {
    expect_rows(GetParam(), {
                                {"[s]\n", {{"s", {}}}},
                                {"[sec] trailing = text\n", {{"sec", {}}}},
                                {"[ a ]\n", {{" a ", {}}}},
                                {"[\ta b]\n", {{"\ta b", {}}}},
                                {"[[a]]\n", {{"[a", {}}}},
                                {"[a]b]\n", {{"a", {}}}},
                                {"[a=;#]\n", {{"a=;#", {}}}},
                                {"[\xe9]\n", {{"\xe9", {}}}},
                            });
}

TEST_P(Parser, leaves_pairs_after_a_bad_header_to_the_section_before) {
    expect_rows(GetParam(), {
                                {"[s]\n[bad\nk = v\n", {{"s", {{"k", "v"}}}}},
                                {"[bad\nk = v\n", {{"", {{"k", "v"}}}}},
                                {"[bad\n]\n", {}},
                                {"[\n", {}},
                                {"[bad\nk = v]\n[s]\n", {{"", {{"k", "v]"}}}, {"s", {}}}},
                                {"[bad = x\n", {}},
                            });
}

TEST_P(Parser, has_a_global_section_only_for_pairs) {
    expect_rows(GetParam(), {
                                {"k = v\n", {{"", {{"k", "v"}}}}},
                                {"k = v\n[s]\n", {{"", {{"k", "v"}}}, {"s", {}}}},
                                {"; c\n\nbad\n[s]\n", {{"s", {}}}},
                                {"[]\n", {{"", {}}}},
                                {"[]\nk = v\n", {{"", {{"k", "v"}}}}},
                                {"[s]\nk = v\n[]\nl = w\n", {{"s", {{"k", "v"}}}, {"", {{"l", "w"}}}}},
                                {"k = v\n[]\nl = w\n[]\n", {{"", {{"k", "v"}}}, {"", {{"l", "w"}}}, {"", {}}}},
                            });
}

TEST_P(Parser, keeps_every_section_and_pair_in_order) {
    expect_rows(
        GetParam(),
        {
            {"k = 1\nl = 2\nk = 3\n", {{"", {{"k", "1"}, {"l", "2"}, {"k", "3"}}}}},
            {"[a]\nk = 1\n[b]\n[a]\nk = 2\nk = 3\n", {{"a", {{"k", "1"}}}, {"b", {}}, {"a", {{"k", "2"}, {"k", "3"}}}}},
            {"k = 1\n\n\n;\n[a]\n\n[b]\n\nk = 2\n", {{"", {{"k", "1"}}}, {"a", {}}, {"b", {{"k", "2"}}}}},
        });
}

TEST_P(Parser, reports_bad_lines_by_the_levels_of_its_own) {
    const std::string text = "[bad \nk = v\n\t junk \n = x\n";
    const Messages all =
        GetParam() == Dialect::cache
            ? Messages{"[debug] Parse_Conf_Cache(#): Bad section definition line: \"[bad \"!\n",
                       "[error] Parse_Conf_Cache(#): Bad key-value definition line: \"\t junk \"!\n",
                       "[error] Parse_Conf_Cache(#): Bad key-value definition line: \" = x\"!\n"}
            : Messages{"[error] Parse_Conf_Stream(#): Bad section definition line: [bad \n!\n",
                       "[debug] Parse_Conf_Stream(#): Bad key-value definition line: \"\t junk \n\"!\n",
                       "[debug] Parse_Conf_Stream(#): Bad key-value definition line: \" = x\n\"!\n"};
    Messages errors;
    for (const std::string &message : all)
        if (message.starts_with("[error]"))
            errors.push_back(message);

    for (const auto &[level, expected] : {std::pair(0, Messages{}), {1, errors}, {2, errors}, {3, all}, {9, all}}) {
        SCOPED_TRACE(level);
        Input input(GetParam(), text);
        ConfList conf;
        EXPECT_EQ(messages_at(level, [&] { EXPECT_EQ(input.parse(conf.head()), 1); }), expected);
        EXPECT_EQ(lists::conf_of(conf), (Conf{{"", {{"k", "v"}}}}));
    }
}

TEST_P(Parser, lays_each_value_out_behind_its_key_in_one_block) {
    Input input(GetParam(), "k = v\n[section]\n  long key \t=\t a value  \nempty =\n");
    ConfList conf;
    const CountCalls allocations(Call::allocation);
    const int32_t result = input.parse(conf.head());
    EXPECT_EQ(allocations.count(), 5) << "one for each section and each pair";
    ASSERT_EQ(result, 2);
    for (const Sect_Node *section = conf; section != nullptr; section = section->pNext)
        for (const Pair_Node *pair = section->pPairs; pair != nullptr; pair = pair->pNext)
            EXPECT_EQ(pair->pszValue, pair->szKey + std::strlen(pair->szKey) + 1) << pair->szKey;
}

TEST_P(Parser, fails_or_ends_at_each_allocation) {
    const std::string head = "[error] " + reporter(GetParam());
    const Messages no_first = {head + "Can't allocate buffer for section node error!\n"};
    const Messages no_section = {head + "Can't allocate 22 bytes buffer for section node error!\n"};
    const Messages no_pair = {head + "Can't allocate 23 bytes buffer for string pair node error!\n"};
    const Conf whole = {{"", {{"kk", "111"}}}, {"first", {{"ll", "222"}}}, {"other", {{"mm", "333"}}}};
    const Parsed rows[] = {
        {-ENOMEM, {}, no_first},
        {-ENOMEM, {}, no_pair},
        {1, {whole[0]}, no_section},
        {-ENOMEM, {}, no_pair},
        {2, {whole[0], whole[1]}, no_section},
        {-ENOMEM, {}, no_pair},
        {3, whole, {}},
    };
    for (int nth = 1; const Parsed &row : rows) {
        SCOPED_TRACE(nth);
        const auto run = [&](Sect_Node **conf) {
            Input input(GetParam(), "kk = 111\n[first]\nll = 222\n[other]\nmm = 333\n");
            const FailCall fault(Call::allocation, ENOMEM, nth);
            return input.parse(conf);
        };
        Sect_Node dummy{};
        Parsed parsed;
        parsed.messages = messages_at(1, [&] {
            Sect_Node *conf = &dummy;
            parsed.result = run(&conf);
            parsed.conf = lists::conf_of(conf);
            Free_Sect_Node(conf);
        });
        EXPECT_EQ(parsed, row);
        EXPECT_FALSE(support::loses_memory([&] {
            ConfList conf;
            run(conf.head());
        }));
        nth++;
    }
}

TEST_P(Parser, takes_a_first_header_without_memory_as_an_empty_configuration) {
    Input input(GetParam(), "[s]\nk = v\n");
    Sect_Node dummy{};
    Sect_Node *conf = &dummy;
    const auto messages = messages_at(1, [&] {
        const FailCall fault(Call::allocation, ENOMEM, 2);
        EXPECT_EQ(input.parse(&conf), 0);
        EXPECT_EQ(fault.failed(), 1);
    });
    EXPECT_EQ(conf, nullptr);
    EXPECT_EQ(messages, (Messages{"[error] " + reporter(GetParam()) +
                                  "Can't allocate 18 bytes buffer for section node error!\n"}));
}

TEST_P(Parser, needs_memory_for_an_empty_text_too) {
    Input input(GetParam(), "");
    ConfList conf;
    const FailCall fault(Call::allocation, ENOMEM);
    EXPECT_EQ(input.parse(conf.head()), -ENOMEM);
}

TEST_P(Parser, agrees_with_a_plain_parser_on_random_texts) {
    const std::string_view bytes = "ab=[];# \t\r\n\n\n= [\xff";
    std::mt19937 random(20240131);
    ConfModel model(GetParam());
    for (int i = 0; i < 5000 && !HasFailure(); i++) {
        std::string text;
        for (size_t size = random() % 120; size > 0; size--)
            text += bytes[random() % bytes.size()];
        EXPECT_EQ(parse(GetParam(), text), model.parse(text)) << testing::PrintToString(text);
    }
}

TEST(ParseConfCache, takes_lines_of_any_length) {
    const std::string name = repeat('n', 1 << 20);
    const std::string key = repeat('k', 1 << 20);
    const std::string value = repeat('v', (1 << 20) + 1);
    const Parsed parsed = parse(Dialect::cache, "[" + name + "]\n" + key + "=" + value + "\n");
    EXPECT_EQ(parsed.result, 1);
    EXPECT_TRUE(parsed.conf == (Conf{{name, {{key, value}}}}));
}

TEST(ParseConfCache, survives_a_bad_line_that_no_message_holds) {
    const std::string junk = repeat('j', 1 << 20);
    EXPECT_EQ(parse(Dialect::cache, junk + "\n[" + junk + "\nk = v\n").conf, (Conf{{"", {{"k", "v"}}}}));
}

TEST(ParseConfCache, needs_no_blank_around_the_equals_sign) {
    expect_rows(Dialect::cache, {
                                    {"a=1\n", {{"", {{"a", "1"}}}}},
                                    {"a=\n", {{"", {{"a", ""}}}}},
                                    {"a==\n", {{"", {{"a", "="}}}}},
                                    {"a =1\na= 1\n", {{"", {{"a", "1"}, {"a", "1"}}}}},
                                });
}

TEST(ParseConfCache, drops_what_follows_the_last_line_feed) {
    expect_rows(Dialect::cache, {
                                    {"a = 1", {}},
                                    {"[s]", {}},
                                    {"junk", {}},
                                    {"a = 1\nb = 2", {{"", {{"a", "1"}}}}},
                                    {"a = 1\n[s]", {{"", {{"a", "1"}}}}},
                                });
}

TEST(ParseConfCache, ends_at_a_nul_byte) {
    const std::string text("a = 1\nb = 2\0\nc = 3\n", 19);
    EXPECT_EQ(parse(Dialect::cache, text), (Parsed{1, {{"", {{"a", "1"}}}}, {}}));
}

TEST(ParseConfCache, marks_the_text_where_it_was_cut) {
    const std::pair<std::string, std::string> rows[] = {
        {"[s] x]\n", "[s~ x]~"},
        {"k = v\n", "k~~ v~"},
        {"k \t=  v \t\n", "k~~~  v~~~"},
        {"k = a = b\n", "k~~ a = b~"},
        {"; c = 1\n\n#]\n", "; c = 1~~#]~"},
        {"[bad\n junk \n", "[bad~ junk ~"},
        {" = x \n", " = x ~"},
        {"a=1\nrest = 2 ", "a~1~rest = 2 "},
    };
    for (const auto &[text, marked] : rows) {
        SCOPED_TRACE(text);
        Input input(Dialect::cache, text);
        ConfList conf;
        EXPECT_GE(input.parse(conf.head()), 0);

        std::string found = input.text();
        std::replace(found.begin(), found.end(), '\0', '~');
        EXPECT_EQ(found, marked);
    }
}

TEST(ParseConfCache, refuses_null_arguments_silently) {
    char text[] = "k = v\n";
    Sect_Node *conf = nullptr;
    const auto messages = messages_at(3, [&] {
        EXPECT_EQ(Parse_Conf_Cache(nullptr, &conf), -EINVAL);
        EXPECT_EQ(Parse_Conf_Cache(text, nullptr), -EINVAL);
        EXPECT_EQ(Parse_Conf_Cache(nullptr, nullptr), -EINVAL);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
    EXPECT_EQ(conf, nullptr);
    EXPECT_STREQ(text, "k = v\n");
}

TEST(ParseConfStream, refuses_null_arguments_silently) {
    FILE *stream = std::tmpfile();
    std::fputs("k = v\n", stream);
    std::rewind(stream);
    Sect_Node *conf = nullptr;
    const auto messages = messages_at(3, [&] {
        EXPECT_EQ(Parse_Conf_Stream(nullptr, &conf), -EINVAL);
        EXPECT_EQ(Parse_Conf_Stream(stream, nullptr), -EINVAL);
    });
    EXPECT_THAT(messages, testing::IsEmpty());
    EXPECT_EQ(conf, nullptr);
    EXPECT_EQ(std::ftell(stream), 0) << "nothing is read";
    std::fclose(stream);
}

TEST(ParseConfStream, runs_a_key_on_through_an_equals_sign_without_a_blank) {
    expect_rows(Dialect::stream, {
                                     {"a=1\n", {{"", {{"a=1", "1"}}}}},
                                     {"a= 1 \n", {{"", {{"a=1", "1"}}}}},
                                     {"  a b=\t1 2\n", {{"", {{"a b=1 2", "1 2"}}}}},
                                     {"a=\n", {{"", {{"a=", ""}}}}},
                                     {"a=1=2\n", {{"", {{"a=1=2", "1=2"}}}}},
                                     {"a = 1\na =1\na\t=1\n", {{"", {{"a", "1"}, {"a", "1"}, {"a", "1"}}}}},
                                     {"[s=t]\n", {{"s=t", {}}}},
                                 });
}

TEST(ParseConfStream, lays_the_value_out_where_the_key_runs_into_it) {
    Input input(Dialect::stream, "ab=12\n");
    ConfList conf;
    ASSERT_EQ(input.parse(conf.head()), 1);
    EXPECT_EQ(conf->pPairs->pszValue, conf->pPairs->szKey + 3);

    char *value = nullptr;
    EXPECT_EQ(Get_Conf_String_Pointer(conf, "", "ab", &value), -ENODATA);
    EXPECT_EQ(Get_Conf_String_Pointer(conf, "", "ab=12", &value), 0);
}

TEST(ParseConfStream, takes_a_last_line_without_a_line_feed) {
    expect_rows(Dialect::stream, {
                                     {"a = 1", {{"", {{"a", "1"}}}}},
                                     {"a = 1\n[s]", {{"", {{"a", "1"}}}, {"s", {}}}},
                                     {"a =", {{"", {{"a", ""}}}}},
                                     {"[bad", {}},
                                     {"junk", {}},
                                     {"  ", {}},
                                     {"#", {}},
                                 });
}

TEST(ParseConfStream, takes_long_lines_in_pieces_of_4095_bytes) {
    const std::string x4091 = repeat('x', 4091);
    const Conf first = {{"", {{"k", x4091}}}};
    expect_rows(
        Dialect::stream,
        {
            {"k = " + repeat('x', 4089) + "\nl = 1\n", {{"", {{"k", repeat('x', 4089)}, {"l", "1"}}}}},
            {"k = " + repeat('x', 4090) + "\nl = 1\n", {{"", {{"k", repeat('x', 4090)}, {"l", "1"}}}}},
            {"k = " + x4091 + "\nl = 1\n", {{"", {{"k", x4091}, {"l", "1"}}}}},
            {"k = " + repeat('x', 4995) + "\n", first},
            {"k = " + x4091 + "l = " + repeat('y', 900) + "\n", {{"", {{"k", x4091}, {"l", repeat('y', 900)}}}}},
            {"k = " + x4091 + "[s]\nl = 1\n", {{"", {{"k", x4091}}}, {"s", {{"l", "1"}}}}},
            {"k = " + x4091 + "; no pair = 1\n", first},
            {"k = " + x4091 + " \t = 1\n", first},
            {"#" + repeat('x', 4094) + "l = 1\n", {{"", {{"l", "1"}}}}},
            {"[" + repeat('x', 4094) + "]\n", {}},
            {"[" + repeat('x', 4093) + "]\n", {{repeat('x', 4093), {}}}},
            {repeat('k', 4094) + " = 1\n", {}},
            {repeat('k', 4093) + " = 1\n", {{"", {{repeat('k', 4093), ""}}}}},
            {repeat(' ', 4095) + "k = v\n", {{"", {{"k", "v"}}}}},
            {"k = " + x4091 + repeat('y', 4095) + "l = 1", {{"", {{"k", x4091}, {"l", "1"}}}}},
        });
}

TEST(ParseConfStream, agrees_with_a_plain_parser_on_random_long_lines) {
    const std::string_view bytes = "a= \n[]#";
    std::mt19937 random(20240229);
    ConfModel model(Dialect::stream);
    for (int i = 0; i < 300 && !HasFailure(); i++) {
        std::string text;
        for (int runs = 0; runs < 12; runs++)
            text += std::string(random() % 3 == 0 ? 4088 + random() % 10 : 1, bytes[random() % bytes.size()]);
        EXPECT_TRUE(parse(Dialect::stream, text) == model.parse(text)) << "text " << i;
    }
}

TEST(ParseConfStream, takes_a_line_up_to_a_nul_byte) {
    const std::string text("a = 1\0junk\n[s\0]\n[t]\0x\n\0b = 2\nc = 3\n", 35);
    const Parsed parsed = parse(Dialect::stream, text);
    EXPECT_EQ(parsed.conf, (Conf{{"", {{"a", "1"}}}, {"t", {{"c", "3"}}}}));
    EXPECT_EQ(parsed.messages, (Messages{"[error] Parse_Conf_Stream(#): Bad section definition line: [s!\n"}));
}

TEST(ParseConfStream, begins_at_the_stream_s_place_and_leaves_it_open_at_its_end) {
    FILE *stream = std::tmpfile();
    std::fputs("skipped = 1\nk = v\n[s]\n", stream);
    std::fseek(stream, 12, SEEK_SET);
    EXPECT_EQ(parse_stream(stream), (Conf{{"", {{"k", "v"}}}, {"s", {}}}));
    EXPECT_TRUE(std::feof(stream));
    EXPECT_EQ(std::ftell(stream), 22);
    EXPECT_EQ(parse_stream(stream), Conf{}) << "nothing is left";
    EXPECT_EQ(std::fclose(stream), 0);
}

TEST(ParseConfStream, reads_a_pipe_to_its_end) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t writer = support::start_child([&] {
        for (int i = 0; i < 5000; i++)
            dprintf(ends[1], "key %d = v\n", i);
        return 0;
    });
    close(ends[1]);
    FILE *stream = fdopen(ends[0], "r");
    const Conf conf = parse_stream(stream);
    EXPECT_EQ(support::wait_for(writer), 0);
    ASSERT_EQ(conf.size(), 1U);
    EXPECT_EQ(conf[0].pairs.size(), 5000U);
    std::fclose(stream);
}

TEST(ParseConfStream, takes_a_read_error_as_the_end) {
    FILE *folder = std::fopen("/", "r");
    EXPECT_THAT(messages_at(3, [&] { EXPECT_EQ(parse_stream(folder), Conf{}); }), testing::IsEmpty());
    EXPECT_TRUE(std::ferror(folder));
    std::fclose(folder);

    // A stream that breaks after its first block, at the end of a line.
    static bool broken;
    broken = false;
    const cookie_io_functions_t functions = {[](void *, char *buffer, size_t) -> ssize_t {
                                                 if (std::exchange(broken, true))
                                                     return -1;
                                                 std::memcpy(buffer, "k = v\n[s]\n", 10);
                                                 return 10;
                                             },
                                             nullptr, nullptr, nullptr};
    FILE *stream = fopencookie(nullptr, "r", functions);
    EXPECT_THAT(messages_at(3,
                            [&] {
                                EXPECT_EQ(parse_stream(stream), (Conf{{"", {{"k", "v"}}}, {"s", {}}}));
                            }),
                testing::IsEmpty());
    std::fclose(stream);
}
