// Moving bytes between descriptors.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "descriptors.h"
#include "file_scenarios.h"
#include "fileio.h"
#include "messages_fileio.h"

namespace faults {
namespace {

using support::Descriptor;

// A source of some bytes and a file that takes them.
struct TwoFiles {
    explicit TwoFiles(const Trial &trial, size_t size = 10)
        : in(trial.file("from", std::string(size, 'n')), O_RDONLY | O_CLOEXEC),
          out(trial.file("to", "old"), O_WRONLY | O_CLOEXEC) {}
    Descriptor in;
    Descriptor out;
};

bool is_failed(const Trial &trial, Call call) {
    return trial.injection() != nullptr && trial.injection()->call == call && !trial.injection()->is_short();
}

Scenarios bulk_scenarios() {
    return {
        {"File_Write_Bulk",
         "",
         [](Trial &trial) {
             const Descriptor out(trial.file("to", "old"), O_WRONLY | O_CLOEXEC);
             uint64_t written = 77;
             trial.call([&] { return File_Write_Bulk(out, "abcde", 5, &written); });
             trial.check(written == (is_failed(trial, Call::write) ? 0 : 5), "the count");
         },
         0,
         {Rule(Call::write).when_short().is_overlooked(), Rule(Call::write).says(msg::write_bulk)}},
        {"File_Send_Bulk",
         "",
         [](Trial &trial) {
             const TwoFiles files(trial);
             int64_t offset = 2;
             uint64_t sent = 77;
             trial.call([&] { return File_Send_Bulk(files.in, files.out, 5, &offset, &sent); });
             const bool failed = is_failed(trial, Call::sendfile);
             trial.check(sent == (failed ? 0 : 5) && offset == (failed ? 2 : 7), "the count and the offset");
         },
         0,
         {Rule(Call::sendfile).when_short().is_overlooked(), Rule(Call::sendfile).says(msg::send_bulk)}},
    };
}

Scenarios splice_scenarios() {
    const Rules rules = {
        Rule(Call::splice).when_short().is_overlooked().says(msg::splice_again),
        Rule(Call::splice).with(EAGAIN).is_overlooked().says(msg::splice_again),
        Rule(Call::splice).says(msg::splice_failed),
    };
    Rules data_rules = rules;
    data_rules.back().says({msg::splice_failed, msg::splice_data});
    const std::map<Call, std::vector<int>> not_now = {{Call::splice, {EAGAIN}}};

    // Nothing comes for longer than the time-out.
    const auto in_vain = [](bool with_offset) {
        return [=](Trial &trial) {
            const support::Pipe pipe;
            const Descriptor out(trial.file("to", "old"), O_WRONLY | O_CLOEXEC);
            int64_t offset = 0;
            int32_t stop = 0;
            trial.call(
                [&] { return Splice_Ext(pipe.out, nullptr, out, with_offset ? &offset : nullptr, 5, 0, 100, &stop); });
        };
    };
    const Rules vain_rules = {Rule(Call::splice).with(EAGAIN).is_overlooked(),
                              Rule(Call::splice).when_short().is_overlooked(), Rule(Call::nanosleep).is_overlooked(),
                              Rule(Call::splice).says(msg::splice_failed)};
    return {
        {"Splice_Ext",
         "",
         [](Trial &trial) {
             const support::Pipe pipe;
             pipe.put("abcde");
             const Descriptor out(trial.file("to", "old"), O_WRONLY | O_CLOEXEC);
             int32_t stop = 0;
             trial.call([&] { return Splice_Ext(pipe.out, nullptr, out, nullptr, 5, 0, 100, &stop); });
         },
         0,
         rules,
         {},
         not_now},
        {"Splice_Ext", "nothing comes", in_vain(false), -ETIME, vain_rules, {msg::splice_again, msg::splice_timeout}},
        {"Splice_Ext",
         "nothing comes for an offset",
         in_vain(true),
         -ETIME,
         vain_rules,
         {msg::splice_again, msg::splice_timeout_at}},
        {"Splice_File_Data",
         "",
         [](Trial &trial) {
             const support::Pipe pipe;
             pipe.put("abcde");
             const Descriptor out(trial.file("to", "old"), O_WRONLY | O_CLOEXEC);
             int64_t total = 1;
             trial.call([&] { return Splice_File_Data(pipe.out, nullptr, out, nullptr, 5, 100, nullptr, &total); });
             trial.check(total == (trial.result() == 0 ? 6 : 1), "the total");
         },
         0,
         data_rules,
         {},
         not_now},
    };
}

using CopyData = int32_t(int32_t, int64_t *, int32_t, int64_t *, int64_t, int32_t *, int64_t *);

std::function<void(Trial &)> copying(CopyData *copy, int64_t size) {
    return [=](Trial &trial) {
        const TwoFiles files(trial, static_cast<size_t>(size));
        int64_t from = 0;
        int64_t to = 0;
        int64_t total = 0;
        trial.call([&] {
            errno = 0;  // which a source that ends early would show
            return copy(files.in, &from, files.out, &to, size, nullptr, &total);
        });
        trial.check(from == total && to == total && (trial.injection() != nullptr || total == size),
                    "offsets and total agree");
    };
}

// What was moved stays.
const Changes kFirstChunk = {holding(".../to", std::string(32'768, 'n'))};

Rules data_rules(const char *function) {
    return {
        Rule(Call::lseek, 1).says(msg::data_seek_in(function)),
        Rule(Call::lseek, 2).says(msg::data_seek_out(function)),
        Rule(Call::malloc).says(msg::data_no_memory(function)),
        Rule(Call::write).when_short().is_overlooked(),
        Rule(Call::write, 1).says({msg::write_bulk, msg::data_not_written(function)}),
        Rule(Call::write)
            .leaves(Files::as_before, kFirstChunk)
            .says({msg::write_bulk, msg::data_not_written(function)}),
    };
}

Scenarios data_scenarios() {
    const Rules finished =
        join({{// A source that ends early fails with the errno of the moment, which is 0 here.
               Rule(Call::read, 1).when_short().gives(0).with_code(0).leaves(Files::as_before).says(msg::data_not_read),
               Rule(Call::read)
                   .when_short()
                   .gives(0)
                   .with_code(0)
                   .leaves(Files::as_before, kFirstChunk)
                   .says(msg::data_not_read),
               Rule(Call::read, 1).says(msg::data_not_read),
               Rule(Call::read).leaves(Files::as_before, kFirstChunk).says(msg::data_not_read)},
              data_rules("Copy_File_Data")});
    const Rules growing =
        join({{Rule(Call::read).when_short().is_overlooked(), Rule(Call::read, 1).says(msg::growing_not_read),
               Rule(Call::read).leaves(Files::as_before, kFirstChunk).says(msg::growing_not_read)},
              data_rules("Copy_File_Data_MROV")});
    return {
        {"Copy_File_Data", "", copying(Copy_File_Data, 10), 0, finished},
        {"Copy_File_Data", "two chunks", copying(Copy_File_Data, 40'000), 0, finished},
        {"Copy_File_Data_MROV", "", copying(Copy_File_Data_MROV, 10), 0, growing},
        {"Copy_File_Data_MROV", "two chunks", copying(Copy_File_Data_MROV, 40'000), 0, growing},
    };
}

}  // namespace

Scenarios transfer_scenarios() {
    return join({bulk_scenarios(), splice_scenarios(), data_scenarios()});
}

}  // namespace faults
