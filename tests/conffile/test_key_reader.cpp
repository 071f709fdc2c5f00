// Reading one key of a file.
#include <climits>

#include "conf_file_test.h"

using lists::Messages;
using support::Call;
using support::FailCall;
using testing::ElementsAre;

namespace {

class KeyReader : public ConfFileTest {
  protected:
    // Reads into a buffer that is large enough; what was read is in `value_`.
    int32_t read(const char *section, const char *key) {
        std::string buffer(4096, '~');
        int32_t size = static_cast<int32_t>(buffer.size());
        const int32_t result = Get_Conf_File_String_Value(file_, section, key, buffer.data(), &size);
        if (result != 0) {
            EXPECT_EQ(buffer, std::string(4096, '~')) << "the buffer was touched by a failure";
            EXPECT_EQ(size, 4096) << "the size was touched by a failure";
            return result;
        }

        EXPECT_EQ(buffer[static_cast<size_t>(size)], '\0');
        EXPECT_EQ(buffer.substr(static_cast<size_t>(size) + 1), std::string(4096 - static_cast<size_t>(size) - 1, '~'));
        value_ = buffer.substr(0, static_cast<size_t>(size));
        return result;
    }

    Outcome failure() {
        return observe([this] { return read("s", "k"); });
    }

    std::string value_;
};

struct Found {
    const char *text;
    const char *section;
    const char *key;
    const char *value;
};

const Found kFound[] = {
    {"k = v\n", "", "k", "v"},
    {"k = v\n", nullptr, "k", "v"},
    {"k = v", "", "k", "v"},
    {"\n\n\nk = v\n", "", "k", "v"},
    {"[s]\n\tx\t=  1\n", "s", "x", "1"},
    {"[s]\nk=v", "s", "k", "v"},
    {"[s]\n \t k \t = \t v \t \n", "s", "k", "v"},
    {"[s]\nk = a = b\n", "s", "k", "a = b"},
    {"[s]\nk ==\n", "s", "k", "="},
    {"[s]\nk =\n", "s", "k", ""},
    {"[s]\nk = \t \n", "s", "k", ""},
    {"[s]\nk = \"v\" ; # no comment\n", "s", "k", "\"v\" ; # no comment"},
    {"[s]\nk = a  b\tc\n", "s", "k", "a  b\tc"},
    {"[s]\na b\tc = v\n", "s", "a b\tc", "v"},
    // A carriage return is a byte like any other.
    {"[s]\r\nk = v\r\n", "s", "k", "v\r"},
    {"[s]\nk = v \r\n", "s", "k", "v \r"},
    {"[s]\nk\r = v\n", "s", "k\r", "v"},
    {"[s]\n\rk = v\n", "s", "\rk", "v"},
    // Vertical tab and form feed are no white space either.
    {"[s]\nk = \vv\f\n", "s", "k", "\vv\f"},
    {"[s]\nk\xff = \x80\xfe\n", "s", "k\xff", "\x80\xfe"},
    // What may stand around a header.
    {"[s] trailing ] text = 1\nk = v\n", "s", "k", "v"},
    {"[s]]\nk = v\n", "s", "k", "v"},
    {"[s]]\nk = v\n", "s]", "k", "v"},
    {"[a]b]\nk = v\n", "a]b", "k", "v"},
    {"[[s]\nk = v\n", "[s", "k", "v"},
    {"[ s ]\nk = v\n", " s ", "k", "v"},
    {"[#]\nk = v\n", "#", "k", "v"},
    {"[S]\nk = 1\n[s]\nk = 2\n", "s", "k", "2"},
    {"[ s]\nk = 1\n[s ]\nk = 2\n[ss]\nk = 3\n[s]\nk = 4\n", "s", "k", "4"},
    {" [s]\nk = 1\n[s]\nk = 2\n", "s", "k", "2"},
    {"#[s]\nk = 1\n[s]\nk = 2\n", "s", "k", "2"},
    {"[s\nk = 1\n[s]\nk = 2\n", "s", "k", "2"},
    {"[r]\n[s]\nk = v\n", "s", "k", "v"},
    // The first of equal sections and keys.
    {"[s]\nk = 1\nk = 2\n[s]\nk = 3\n", "s", "k", "1"},
    {"k = 1\n[s]\nk = 2\n", "", "k", "1"},
    {"k = 1\n[s]\nk = 2\n", "s", "k", "2"},
    // Comments are whole lines that begin with the mark.
    {"[s]\n#k = 1\n;k = 2\nk = 3\n", "s", "k", "3"},
    {"[s]\n #k = 1\n", "s", "#k", "1"},
    {"[s]\n\t;k = 1\n", "s", ";k", "1"},
    // Lines that are no pairs are passed over, whatever they hold.
    {"[s]\nnonsense\n\n \t\n]\nk\nk = v\n", "s", "k", "v"},
    {"[s]\n [t]\nk = v\n", "s", "k", "v"},
    {"[s]\n [t] = 1\n", "s", "[t]", "1"},
    {"[s]\nkk = 1\nK = 2\nk k = 3\nk = 4\n", "s", "k", "4"},
    {"[s]\n= v\n", "s", "", "v"},
    {"[s]\n \t=v\n", "s", "", "v"},
    // A "[" that no "]" follows in the whole rest of the file ends nothing.
    {"[s]\n[bad\nk = v\n", "s", "k", "v"},
    {"[s]\n[\n[\n[\nk = v\n", "s", "k", "v"},
    {"[bad\nk = v\n", "", "k", "v"},
    {"# ]\n[bad\nk = v\n", "", "k", "v"},
    // Nor does a "]" that follows no "[".
    {"[s]\na = ]\nk = v\n", "s", "k", "v"},
};

struct NotFound {
    const char *text;
    const char *section;
    const char *key;
    int32_t result;
};

const NotFound kNotFound[] = {
    {"", "", "k", -ENODATA},
    {"", "s", "k", -ENOANO},
    {"\n\n\n", nullptr, "k", -ENODATA},
    {"k = v\n", "s", "k", -ENOANO},
    {"[s]\n", "s", "k", -ENODATA},
    {"[s]", "s", "k", -ENODATA},
    {"[s]\nk\n", "s", "k", -ENODATA},
    {"[s]\n#k = v\n", "s", "#k", -ENODATA},
    {"[s]\n;k = v\n", "s", ";k", -ENODATA},
    {"[s]\nk = v\n", "s", "K", -ENODATA},
    {"[s]\nkey = v\n", "s", "ke", -ENODATA},
    {"[s]\nke = v\n", "s", "key", -ENODATA},
    {"[s]\n k = v\n", "s", " k", -ENODATA},
    {"[s]\na=b = v\n", "s", "a=b", -ENODATA},
    {"[s]\nk = v\n", "s", "", -ENODATA},
    {"[s]\nk = v\n", "S", "k", -ENOANO},
    {"[s\nk = v\n", "s", "k", -ENOANO},
    {"[sx]\nk = v\n", "s", "k", -ENOANO},
    {"[s]\nk = v\n", "sx", "k", -ENOANO},
    {"[ s]\nk = v\n", "s", "k", -ENOANO},
    {"\t[s]\nk = v\n", "s", "k", -ENOANO},
    {"x[s]\nk = v\n", "s", "k", -ENOANO},
    // Later sections of the name are never seen, and a section ends at the next header.
    {"[s]\na = 1\n[s]\nk = v\n", "s", "k", -ENODATA},
    {"[s]\n[t]\nk = v\n", "s", "k", -ENODATA},
    {"[s]\nk = v\n", "", "k", -ENODATA},
    {"[s]\nk = v\n", nullptr, "k", -ENODATA},
    // A header without a name ends the global section and is never the wanted one.
    {"[]\nk = v\n", "", "k", -ENODATA},
    {"[]\nk = v\n", nullptr, "k", -ENODATA},
    // The "]" that makes a "[" line the end is looked for to the end of the file.
    {"[s]\n[bad\nk = v\n[t]\n", "s", "k", -ENODATA},
    {"[s]\n[bad\nk = v\n# ]\n", "s", "k", -ENODATA},
    {"[s]\n[bad\nk = v]", "s", "k", -ENODATA},
    {"[bad\nk = v\n[s]\n", "", "k", -ENODATA},
};

TEST_F(KeyReader, finds_the_first_equal_key_of_the_first_equal_section) {
    for (const Found &row : kFound) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        write(row.text);
        EXPECT_EQ(observe([&] { return read(row.section, row.key); }).result, 0);
        EXPECT_EQ(value_, row.value);
        EXPECT_EQ(content(), row.text);
    }
}

TEST_F(KeyReader, tells_a_missing_section_from_a_missing_key_in_silence) {
    for (const NotFound &row : kNotFound) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        write(row.text);
        EXPECT_EQ(observe([&] { return read(row.section, row.key); }), (Outcome{row.result, {}}));
        EXPECT_EQ(content(), row.text);
    }
}

TEST_F(KeyReader, reports_a_bad_section_line_with_all_that_follows_it) {
    write("[s]\na = 1\n[bad = x\n[worse\nk = v");
    EXPECT_EQ(failure(),
              (Outcome{0,
                       {"[debug] Get_Conf_File_String_Value(#): Bad section line: [bad = x\n[worse\nk = v\n!\n",
                        "[debug] Get_Conf_File_String_Value(#): Bad section line: [worse\nk = v\n!\n"}}));
    EXPECT_EQ(value_, "v");
}

// Else a million such lines would be formatted in quadratic time. The log's writer refuses so long a message, and tells
// how long it was.
TEST_F(KeyReader, formats_no_more_of_a_bad_section_line_than_a_message_holds) {
    constexpr size_t kMost = 16'464;
    const std::string prefix = "[debug] Get_Conf_File_String_Value(000): Bad section line: ";
    for (const size_t more : {size_t{0}, size_t{1'000'000}}) {
        write("[s]\n[bad\n" + std::string(kMost - 6 + more, 'x') + "\nk = v\n");
        const Outcome outcome = failure();
        ASSERT_EQ(outcome.messages.size(), 1U);
        int length = 0;
        ASSERT_EQ(std::sscanf(outcome.messages[0].c_str(),
                              "[error] Simp_Log_Write(#): Can't generate the log message ! (-75, %d)", &length),
                  1)
            << outcome.messages[0];
        EXPECT_NEAR(length, static_cast<int>(prefix.size() + kMost + 2), 1) << "but for the digits of the line";
        EXPECT_EQ(value_, "v");
    }
}

TEST_F(KeyReader, reports_no_bad_line_behind_the_key_or_outside_the_section) {
    write("[bad\n[x\n[s]\nk = v\n[bad\n");
    EXPECT_EQ(failure(), (Outcome{0, {}}));
}

TEST_F(KeyReader, wants_one_byte_more_than_the_value_and_answers_its_length) {
    struct Row {
        const char *value;
        int32_t size;
        int32_t result;
        int32_t length;
    };
    const Row rows[] = {
        {"12", 1, -EOVERFLOW, 2}, {"12", 2, -EOVERFLOW, 2}, {"12", 3, 0, 2},
        {"12", 4, 0, 2},          {"12", INT_MAX, 0, 2},    {"", 1, 0, 0},
        {"1", 1, -EOVERFLOW, 1},  {"  12\t", 3, 0, 2},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << testing::PrintToString(row.value) << " into " << row.size);
        write("[s]\nk = " + std::string(row.value) + "\n");
        char buffer[] = "~~~~~~~";
        int32_t size = row.size;
        EXPECT_EQ(observe([&] { return Get_Conf_File_String_Value(file_, "s", "k", buffer, &size); }),
                  (Outcome{row.result, {}}));
        EXPECT_EQ(size, row.length);
        EXPECT_EQ(std::string(buffer, sizeof buffer - 1), row.result != 0   ? "~~~~~~~"
                                                          : row.length == 0 ? std::string("\0~~~~~~", 7)
                                                                            : std::string("12\0~~~~", 7));
    }
}

TEST_F(KeyReader, refuses_bad_arguments_with_a_message) {
    write("[s]\nk = v\n");
    char buffer[8] = "~";
    int32_t size = 8;
    int32_t bad_sizes[] = {0, -1, INT_MIN};
    const Outcome refused{-EINVAL, {"[debug] Get_Conf_File_String_Value(#): Bad parameters!\n"}};

    EXPECT_EQ(observe([&] { return Get_Conf_File_String_Value(nullptr, "s", "k", buffer, &size); }), refused);
    EXPECT_EQ(observe([&] { return Get_Conf_File_String_Value(file_, "s", nullptr, buffer, &size); }), refused);
    EXPECT_EQ(observe([&] { return Get_Conf_File_String_Value(file_, "s", "k", nullptr, &size); }), refused);
    EXPECT_EQ(observe([&] { return Get_Conf_File_String_Value(file_, "s", "k", buffer, nullptr); }), refused);
    EXPECT_EQ(size, 8);
    for (int32_t &bad : bad_sizes) {
        const int32_t before = bad;
        EXPECT_EQ(observe([&] { return Get_Conf_File_String_Value(file_, "s", "k", buffer, &bad); }), refused);
        EXPECT_EQ(bad, before);
    }
    EXPECT_STREQ(buffer, "~");
}

TEST_F(KeyReader, says_its_debug_messages_at_level_three_only) {
    EXPECT_EQ(observe([&] { return read("s", "k"); }, 2), (Outcome{-ENOENT, {}}));
    EXPECT_EQ(observe([&] { return Get_Conf_File_String_Value(nullptr, "s", "k", nullptr, nullptr); }, 2),
              (Outcome{-EINVAL, {}}));
}

std::string cant_cache(const std::string &path, int error) {
    return "[debug] Get_Conf_File_String_Value(#): Can't cache file \"" + path + "\" error! (" +
           std::to_string(-error) + ")\n";
}

TEST_F(KeyReader, reports_a_missing_file) {
    EXPECT_EQ(failure(), (Outcome{-ENOENT, {cant_cache(path_, ENOENT)}}));
    ASSERT_EQ(symlink("nowhere", file_), 0);
    EXPECT_EQ(failure(), (Outcome{-ENOENT, {cant_cache(path_, ENOENT)}}));
}

TEST_F(KeyReader, follows_a_symbolic_link) {
    folder_.file("real", "[s]\nk = v\n");
    ASSERT_EQ(symlink("real", file_), 0);
    EXPECT_EQ(read("s", "k"), 0);
    EXPECT_EQ(value_, "v");
}

TEST_F(KeyReader, refuses_what_is_no_regular_file) {
    const auto refused = [this](const char *mode) {
        return Outcome{-ENOMEDIUM,
                       {"[debug] Cache_Conf_File(#): The specified file \"" + path_ +
                            "\" is not a regular file error! (" + mode + ")\n",
                        cant_cache(path_, ENOMEDIUM)}};
    };
    ASSERT_EQ(mkdir(file_, 0), 0);
    ASSERT_EQ(chmod(file_, 0750), 0);
    EXPECT_EQ(failure(), refused("41E8"));
    ASSERT_EQ(rmdir(file_), 0);

    ASSERT_EQ(mkfifo(file_, 0600), 0);
    EXPECT_EQ(failure(), refused("1180"));
}

TEST_F(KeyReader, reports_a_path_that_the_system_refuses) {
    const std::string below = folder_.file("file", "") + "/app.conf";
    int32_t size = 4;
    char buffer[4];
    EXPECT_EQ(observe([&] { return Get_Conf_File_String_Value(below.c_str(), "s", "k", buffer, &size); }),
              (Outcome{-ENOTDIR,
                       {"[debug] Cache_Conf_File(#): Can't stat the conf file \"" + below + "\" error! (-20)\n",
                        cant_cache(below, ENOTDIR)}}));
}

TEST_F(KeyReader, reports_a_file_that_may_not_be_read) {
    write("[s]\nk = v\n");
    ASSERT_EQ(chmod(file_, 0), 0);
    EXPECT_EQ(support::in_child([this] {
                  give_up_privileges();
                  EXPECT_EQ(
                      failure(),
                      (Outcome{-EACCES,
                               {"[debug] Cache_Conf_File(#): Can't open the conf file \"" + path_ + "\" error! (-13)\n",
                                cant_cache(path_, EACCES)}}));
                  return HasFailure() ? 1 : 0;
              }),
              0);
}

TEST_F(KeyReader, reports_a_read_that_fails) {
    write("[s]\nk = v\n");
    EXPECT_EQ(observe([this] {
                  const FailCall fault(Call::read, EIO);
                  return read("s", "k");
              }),
              (Outcome{-EIO,
                       {"[debug] Cache_Conf_File(#): Read \"" + path_ + "\" 10 bytes but got -1 bytes error! (-5)\n",
                        cant_cache(path_, EIO)}}));
}

TEST_F(KeyReader, reports_memory_that_is_not_to_be_had) {
    write("[s]\nk = v\n");
    EXPECT_EQ(observe([this] {
                  const FailCall fault(Call::allocation, ENOMEM);
                  char buffer[8];
                  int32_t size = 8;
                  return Get_Conf_File_String_Value(file_, "s", "k", buffer, &size);
              }),
              (Outcome{-ENOMEM,
                       {"[debug] Cache_Conf_File(#): Can't allocate 12 byte to cache the conf file \"" + path_ +
                            "\" error!\n",
                        cant_cache(path_, ENOMEM)}}));
}

TEST_F(KeyReader, takes_no_lock_and_waits_for_none) {
    write("[s]\nk = v\n");
    const support::FakeClock clock;
    const ForeignLock held(lock_, clock.now());
    const ForeignLock watched("/var/lock/app.conf.lck", clock.now());
    EXPECT_EQ(read("s", "k"), 0);
    EXPECT_EQ(value_, "v");
    EXPECT_EQ(clock.sleeps(), 0);
}

TEST_F(KeyReader, reads_keys_and_values_of_a_megabyte) {
    const std::string key(1 << 20, 'k');
    const std::string value(1 << 20, 'v');
    write("[s]\n" + key.substr(1) + " = no\n  " + key + " = \t" + value + " \n");
    std::string buffer(value.size() + 1, '~');
    auto size = static_cast<int32_t>(value.size());
    EXPECT_EQ(Get_Conf_File_String_Value(file_, "s", key.c_str(), buffer.data(), &size), -EOVERFLOW);
    EXPECT_EQ(size, 1 << 20);
    size++;
    EXPECT_EQ(Get_Conf_File_String_Value(file_, "s", key.c_str(), buffer.data(), &size), 0);
    EXPECT_EQ(size, 1 << 20);
    EXPECT_STREQ(buffer.c_str(), value.c_str());
}

TEST_F(KeyReader, looks_past_nul_bytes_and_garbage) {
    using namespace std::string_literals;
    write("\0\1\2=\xff\0\n\0[s]\n#\0\n\0\n\0 = \0\n[s]\nk\0 = 1\nx\0y\n#\0]\nk = v\n"s);
    EXPECT_EQ(read("s", "k"), 0);
    EXPECT_EQ(value_, "v");
}

class NumberReader : public KeyReader {
  protected:
    template <typename Integer>
    using Getter = int32_t (*)(const char *, const char *, const char *, Integer *);

    template <typename Integer>
    struct Number {
        const char *text;
        int32_t result;
        Integer value;
    };

    template <typename Integer>
    void expect_numbers(Getter<Integer> get, std::initializer_list<Number<Integer>> rows) {
        for (const Number<Integer> &row : rows) {
            SCOPED_TRACE(testing::PrintToString(row.text));
            write(std::string("k = ") + row.text + "\n[s]\nk = " + row.text + "\n");
            for (const char *section : {"", "s"}) {
                Integer value = 99;
                EXPECT_EQ(get(file_, section, "k", &value), row.result);
                EXPECT_EQ(value, row.value);
            }
        }
    }

    template <typename Integer>
    void expect_failures(Getter<Integer> get) {
        write("k = 1\n[s]\nk = 1\nlong = 00000000000000000000000000000001\n");
        Integer value = 99;
        // The path and the key are the getter of texts' to refuse, and it says so.
        const Outcome refused{-EINVAL, {"[debug] Get_Conf_File_String_Value(#): Bad parameters!\n"}};
        EXPECT_EQ(observe([&] { return get(nullptr, "s", "k", &value); }), refused);
        EXPECT_EQ(observe([&] { return get(file_, "s", nullptr, &value); }), refused);
        EXPECT_EQ(observe([&] { return get(file_, nullptr, "k", &value); }), (Outcome{-EINVAL, {}}));
        EXPECT_EQ(observe([&] { return get(file_, "s", "k", nullptr); }), (Outcome{-EINVAL, {}}));
        EXPECT_EQ(observe([&] { return get(nullptr, nullptr, nullptr, &value); }), (Outcome{-EINVAL, {}}));
        EXPECT_EQ(get(folder_.path("missing").c_str(), "s", "k", &value), -ENOENT);
        EXPECT_EQ(get(folder_.path().c_str(), "s", "k", &value), -ENOMEDIUM);
        EXPECT_EQ(get(file_, "t", "k", &value), -ENOANO);
        EXPECT_EQ(get(file_, "s", "x", &value), -ENODATA);
        EXPECT_EQ(get(file_, "s", "long", &value), -EOVERFLOW);
        EXPECT_EQ(value, 99) << "the number was touched by a failure";
    }
};

TEST_F(NumberReader, converts_like_strtoll_in_base_ten) {
    expect_numbers<int64_t>(Get_Conf_File_Int64_Value, {{"0", 0, 0},
                                                        {"-0", 0, 0},
                                                        {"+5", 0, 5},
                                                        {"12abc", 0, 12},
                                                        {"abc", 0, 0},
                                                        {"", 0, 0},
                                                        {"0x10", 0, 0},
                                                        {"010", 0, 10},
                                                        {"5\r", 0, 5},
                                                        {"\v\f\r7", 0, 7},
                                                        {"- 7", 0, 0},
                                                        {"1 2", 0, 1},
                                                        {"9223372036854775807", 0, INT64_MAX},
                                                        {"-9223372036854775808", 0, INT64_MIN},
                                                        {"9223372036854775808", 0, INT64_MAX},
                                                        {"-9223372036854775809", 0, INT64_MIN}});
}

TEST_F(NumberReader, has_room_for_thirty_one_characters) {
    const char *const fits = "0000000000000000000000000000007";
    const char *const too_long = "00000000000000000000000000000007";
    expect_numbers<int64_t>(Get_Conf_File_Int64_Value, {{fits, 0, 7}, {too_long, -EOVERFLOW, 99}});
    expect_numbers<int32_t>(Get_Conf_File_Int32_Value, {{fits, 0, 7}, {too_long, -EOVERFLOW, 99}});
    expect_numbers<int16_t>(Get_Conf_File_Int16_Value, {{fits, 0, 7}, {too_long, -EOVERFLOW, 99}});
    expect_numbers<int8_t>(Get_Conf_File_Int8_Value, {{fits, 0, 7}, {too_long, -EOVERFLOW, 99}});
}

TEST_F(NumberReader, stores_what_is_left_of_a_number_out_of_range) {
    expect_numbers<int8_t>(Get_Conf_File_Int8_Value, {{"127", 0, 127},
                                                      {"-127", 0, -127},
                                                      {"128", -EOVERFLOW, -128},
                                                      {"-128", -EOVERFLOW, -128},
                                                      {"300", -EOVERFLOW, 44},
                                                      {"-129", -EOVERFLOW, 127},
                                                      {"256", -EOVERFLOW, 0},
                                                      {"4294967297", -EOVERFLOW, 1},
                                                      {"9223372036854775808", -EOVERFLOW, -1},
                                                      {"12x", 0, 12}});
    expect_numbers<int16_t>(Get_Conf_File_Int16_Value, {{"32767", 0, 32767},
                                                        {"-32767", 0, -32767},
                                                        {"32768", -EOVERFLOW, -32768},
                                                        {"-32768", -EOVERFLOW, -32768},
                                                        {"65537", -EOVERFLOW, 1},
                                                        {"-9223372036854775809", -EOVERFLOW, 0}});
    expect_numbers<int32_t>(Get_Conf_File_Int32_Value, {{"2147483647", 0, INT32_MAX},
                                                        {"-2147483647", 0, -INT32_MAX},
                                                        {"2147483648", -EOVERFLOW, INT32_MIN},
                                                        {"-2147483648", -EOVERFLOW, INT32_MIN},
                                                        {"4294967297", -EOVERFLOW, 1}});
}

TEST_F(NumberReader, passes_on_failures_and_wants_a_section_name) {
    expect_failures<int64_t>(Get_Conf_File_Int64_Value);
    expect_failures<int32_t>(Get_Conf_File_Int32_Value);
    expect_failures<int16_t>(Get_Conf_File_Int16_Value);
    expect_failures<int8_t>(Get_Conf_File_Int8_Value);
}

}  // namespace
