// Random small texts and random operations on one key, against a second, naive implementation: the results, the file
// and the messages must be the same byte for byte.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>

#include "conf_file_test.h"

using lists::Messages;

namespace {

constexpr const char *kGetter = "Get_Conf_File_String_Value";
constexpr const char *kSetter = "Set_Conf_File_String_Value";

struct Line {
    size_t begin;
    std::string text;  // without its line feed
    size_t next() const { return begin + text.size() + 1; }
};

class Model {
  public:
    Model(const char *function, const std::string &file) : function_(function), text_(file) {
        if (text_.empty() || text_.back() != '\n')
            text_ += '\n';
        for (size_t begin = 0; begin < text_.size();) {
            const size_t feed = text_.find('\n', begin);
            lines_.push_back({begin, text_.substr(begin, feed - begin)});
            begin = feed + 1;
        }
    }

    // The line that holds the key, or null; `result` says what was missing and `end` where the section ends.
    const Line *find(const std::string &section, const std::string &key) {
        size_t number = 0;
        if (!section.empty()) {
            while (number < lines_.size() && !lines_[number].text.starts_with("[" + section + "]"))
                number++;
            if (number == lines_.size()) {
                result = -ENOANO;
                return nullptr;
            }
            number++;
        }

        result = -ENODATA;
        for (end = text_.size(); number < lines_.size(); number++) {
            const Line &line = lines_[number];
            if (line.text.starts_with("[")) {
                if (text_.find(']', line.begin) != std::string::npos) {
                    end = line.begin;
                    return nullptr;
                }
                messages.push_back(std::string("[debug] ") + function_ +
                                   "(#): Bad section line: " + text_.substr(line.begin) + "!\n");
            } else if (!line.text.starts_with("#") && !line.text.starts_with(";") &&
                       line.text.find('=') != std::string::npos &&
                       trimmed(line.text.substr(0, line.text.find('='))) == key) {
                result = 0;
                return &line;
            }
        }
        return nullptr;
    }

    static std::string value_in(const Line &line) { return trimmed(line.text.substr(line.text.find('=') + 1)); }

    // The new text, or nothing where the file stays as it is.
    std::optional<std::string> set(const std::string &section, const std::string &key, const char *value) {
        const std::string pair = value == nullptr ? "" : key + " = " + value + "\n";
        const Line *line = find(section, key);
        if (line != nullptr)
            return text_.substr(0, line->begin) + pair + text_.substr(line->next());
        if (value == nullptr)
            return std::nullopt;

        const bool append = result == -ENOANO;
        result = 0;
        if (append) {
            const std::string kept = without_feeds_at_end(without_feeds_at_start(text_));
            return kept + (kept.empty() ? "" : "\n\n") + "[" + section + "]\n" + pair;
        }
        const std::string head = without_feeds_at_end(without_feeds_at_start(text_.substr(0, end)));
        return head + "\n" + pair + "\n" + text_.substr(std::max(end, feeds_at_start(text_)));
    }

    int32_t result = 0;
    size_t end = 0;
    Messages messages;

  private:
    static std::string trimmed(std::string text) {
        while (text.starts_with(' ') || text.starts_with('\t'))
            text.erase(0, 1);
        while (text.ends_with(' ') || text.ends_with('\t'))
            text.pop_back();
        return text;
    }

    static size_t feeds_at_start(const std::string &text) {
        return std::min(text.find_first_not_of('\n'), text.size());
    }
    static std::string without_feeds_at_start(const std::string &text) { return text.substr(feeds_at_start(text)); }
    static std::string without_feeds_at_end(std::string text) {
        while (text.ends_with('\n'))
            text.pop_back();
        return text;
    }

    const char *function_;
    std::string text_;
    std::vector<Line> lines_;
};

class Dice {
  public:
    explicit Dice(uint32_t seed) : engine_(seed) {}

    size_t below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(engine_); }
    bool one_in(size_t number) { return below(number) == 0; }

    template <typename T>
    const T &one_of(const std::vector<T> &list) {
        return list[below(list.size())];
    }

    // Bytes from the alphabet, or whole lines that make sense, so that every rule is met often.
    std::string text() {
        static const std::string alphabet = "[]=#;\n\t \rab";
        static const std::vector<std::string> pieces = {
            "[a]", "[b]",  "[]", "\n",   "\n",    "\n\n", "a=1",      "b = ", "a = b",     "b\t=]", "\ta\t=\t",
            "[a",  "#[a]", "]",  ";a=b", "[ab]x", "[a]]", "ab = a=b", "\r\n", "a = 12345", "[",     "a b = \t1 \t"};
        std::string text;
        const bool bytes = one_in(3);
        for (size_t left = below(bytes ? 40 : 14); left > 0; left--) {
            if (bytes || one_in(4))
                text += alphabet[below(alphabet.size())];
            else
                text += one_of(pieces) + (one_in(5) ? "" : "\n");
        }
        // From some place on without any "]": there a "[" ends nothing.
        if (one_in(3) && !text.empty())
            text.erase(std::remove(text.begin() + static_cast<int64_t>(below(text.size())), text.end(), ']'),
                       text.end());
        return text;
    }

  private:
    std::mt19937 engine_;
};

// A section name holds no line feed: no line could hold it.
const std::vector<std::optional<std::string>> kSections = {std::nullopt, "",   "a",  "a", "b",  "ab",
                                                           "a]",         " a", "[a", "]", "a=", "\r"};
const std::vector<std::optional<std::string>> kUsualSections = {std::nullopt, "", "a", "a", "a", "b"};
const std::vector<std::string> kUsualKeys = {"a", "b"};
const std::vector<std::string> kKeys = {"a", "a", "b", "ab", "", " a", "a b", "[a", "#a", "]", "\r", "a=", "=", "[a]"};
const std::vector<std::optional<std::string>> kValues = {std::nullopt, std::nullopt, std::nullopt, std::nullopt, "",
                                                         "1",          "b",          " a ",        "a=b",        "[b]",
                                                         "1\nb=2",     "1\n[b]",     "\r\n",       "]"};

const char *c_text(const std::optional<std::string> &text) {
    return text ? text->c_str() : nullptr;
}

class EditorModel : public testing::TestWithParam<uint32_t> {
  protected:
    // In memory: a disk that flushes at each rename takes minutes for all of these.
    const support::SmallDisk disk_{1 << 20};
    const std::string path_ = disk_.path("app.conf");
    const char *const file_ = path_.c_str();

    // A getter's turn; sizes around the value's length.
    void expect_same_read(Dice &dice, const std::string &file) {
        const auto &section = dice.one_of(dice.one_in(4) ? kSections : kUsualSections);
        const std::string &key = dice.one_of(dice.one_in(4) ? kKeys : kUsualKeys);
        const auto room = static_cast<int32_t>(1 + dice.below(6));
        SCOPED_TRACE("get " + testing::PrintToString(section) + " " + testing::PrintToString(key));

        Model model(kGetter, file);
        const Line *line = model.find(section.value_or(""), key);
        const std::string value = line == nullptr ? "" : Model::value_in(*line);
        const bool fits = line != nullptr && value.size() < static_cast<size_t>(room);
        const int32_t expected = line != nullptr && !fits ? -EOVERFLOW : model.result;

        char buffer[] = "~~~~~~~~";
        int32_t size = room;
        EXPECT_EQ(
            observe([&] { return Get_Conf_File_String_Value(file_, c_text(section), key.c_str(), buffer, &size); }),
            (Outcome{expected, model.messages}));
        EXPECT_EQ(size, line == nullptr ? room : static_cast<int32_t>(value.size()));
        EXPECT_EQ(std::string(buffer, 8), fits ? value + '\0' + std::string(7 - value.size(), '~') : "~~~~~~~~");
        expect_same_number(section, key, line == nullptr ? std::nullopt : std::optional(value), model.result);
    }

    void expect_same_number(const std::optional<std::string> &section, const std::string &key,
                            const std::optional<std::string> &value, int32_t result) const {
        int64_t number = 99;
        int32_t expected = section ? result : -EINVAL;
        if (section && value && value->size() >= 32)
            expected = -EOVERFLOW;
        EXPECT_EQ(Get_Conf_File_Int64_Value(file_, c_text(section), key.c_str(), &number), expected);
        EXPECT_EQ(number, expected == 0 ? std::strtoll(value->c_str(), nullptr, 10) : 99);
    }

    // A setter's turn: the file that it must leave.
    std::string expect_same_write(Dice &dice, const std::optional<std::string> &file) {
        const auto &section = dice.one_of(dice.one_in(4) ? kSections : kUsualSections);
        const std::string &key = dice.one_of(dice.one_in(4) ? kKeys : kUsualKeys);
        const auto &value = dice.one_of(kValues);
        SCOPED_TRACE("set " + testing::PrintToString(section) + " " + testing::PrintToString(key) + " to " +
                     testing::PrintToString(value));

        Model model(kSetter, file.value_or(""));
        const std::string after = model.set(section.value_or(""), key, c_text(value)).value_or(file.value_or(""));
        EXPECT_EQ(
            observe([&] { return Set_Conf_File_String_Value(file_, c_text(section), key.c_str(), c_text(value)); }),
            (Outcome{model.result, model.messages}));
        EXPECT_EQ(support::read_file(path_), after);
        return after;
    }
};

TEST_P(EditorModel, behaves_as_the_naive_one_does) {
    constexpr int kTexts = 800;
    constexpr int kOperations = 4;
    Dice dice(GetParam());
    for (int number = 0; number < kTexts && !HasFailure(); number++) {
        std::string file = dice.text();
        support::write_file(path_, file);
        for (int operation = 0; operation < kOperations && !HasFailure(); operation++) {
            SCOPED_TRACE(testing::Message() << "text " << number << ": " << testing::PrintToString(file));
            expect_same_read(dice, file);
            file = expect_same_write(dice, file);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seed, EditorModel, testing::Range(1U, 9U));

}  // namespace
