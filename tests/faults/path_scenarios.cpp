// Questions about paths and descriptors, and whole small files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "descriptors.h"
#include "file_scenarios.h"
#include "fileio.h"
#include "messages_fileio.h"

namespace faults {
namespace {

using support::Descriptor;

std::function<void(Trial &)> waiting_for(bool high_number) {
    return [=](Trial &trial) {
        const support::Pipe pipe;
        pipe.put("x");
        const Descriptor high(high_number ? support::as_high_number(pipe.out) : dup(pipe.out));
        trial.call([&] { return Is_FD_Ready_To_Read(high, 0); });
    };
}

Scenarios descriptor_scenarios() {
    constexpr std::array<timespec, 2> times{{{1, 2}, {3, 4}}};
    const Rules name_rules = {Rule(Call::readlink).with(ENOENT).gives(-EINVAL)};
    return {
        {"Is_FD_Ready_To_Read", "", waiting_for(false), 1},
        {"Is_FD_Ready_To_Read", "a high number", waiting_for(true), 1},
        {"Get_FD_Path", "",
         [](Trial &trial) {
             const Descriptor null("/dev/null", O_RDONLY);
             std::array<char, 64> text{};
             trial.call([&] { return Get_FD_Path(null, text.data(), 64); });
             trial.check(std::string(text.data()) == (trial.result() > 0 ? "/dev/null" : ""), "the name, or nothing");
         },
         9, name_rules},
        {"Fullpath",
         "",
         [](Trial &trial) {
             const Descriptor null("/dev/null", O_RDONLY);
             trial.call([&] { return Fullpath(null) != nullptr; });
         },
         1,
         {Rule().gives(0)}},
        {"Set_File_Time_At", "",
         [=](Trial &trial) {
             const std::string path = trial.file("x", "1");
             trial.call([&] { return Set_File_Time_At(AT_FDCWD, path.c_str(), times.data(), 0); });
             struct stat status {};
             stat(path.c_str(), &status);
             trial.check((status.st_mtim.tv_sec == 3) == (trial.result() == 0), "the time, where that succeeds");
         }},
        {"Set_File_Modified_Time_At", "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "1");
             trial.call([&] { return Set_File_Modified_Time_At(AT_FDCWD, path.c_str(), 4, 3, 0); });
         }},
    };
}

Scenarios status_scenarios() {
    const Rules missing_is_no = {Rule(Call::fstatat).with(ENOENT).gives(0)};
    // 1 for the scenario's folder.
    const auto checking = [](const std::function<int32_t(const char *, uint32_t *)> &check) {
        return [check](Trial &trial) {
            const std::string path = trial.folder().path();
            uint32_t is_folder = 77;
            trial.call([&] { return check(path.c_str(), &is_folder); });
            trial.check(is_folder == (trial.result() == 0 ? 1 : 77), "the answer, or none");
        };
    };
    return {
        {"Is_Folder", "",
         [](Trial &trial) {
             const std::string path = trial.folder().path();
             trial.call([&] { return Is_Folder(path.c_str()); });
         },
         1},
        {"Check_Folder", "", checking(Check_Folder)},
        {"Check_Folder_At", "",
         checking([](const char *path, uint32_t *is_folder) { return Check_Folder_At(AT_FDCWD, path, is_folder); })},
        {"Check_File", "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "1");
             trial.call([&] { return Check_File(path.c_str()); });
         },
         1, missing_is_no},
        {"Check_File_At", "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "1");
             trial.call([&] { return Check_File_At(AT_FDCWD, path.c_str()); });
         },
         1, missing_is_no},
        {"Get_File_Size", "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "four");
             uint64_t size = 77;
             trial.call([&] { return Get_File_Size(path.c_str(), &size); });
             trial.check(size == (trial.result() == 0 ? 4 : 77), "the size, or none");
         }},
    };
}

Scenarios whole_file_scenarios() {
    // One read, by contract: what it brings is the content.
    const Rules read_rules = {Rule(Call::read).when_short().is_overlooked(), Rule(Call::close).is_overlooked()};
    return {
        {"Simple_Read_File", "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "four\n");
             std::array<char, 16> text{};
             int32_t length = 16;
             trial.call([&] { return Simple_Read_File(path.c_str(), text.data(), &length); });
             const bool cut = trial.injection() != nullptr && trial.injection()->is_short();
             if (trial.result() == 0)
                 trial.check(std::string(text.data()) == (cut ? "f" : "four") && length == (cut ? 1 : 4), "the text");
             else
                 trial.check(length == 16, "no length after a failure");
         },
         0, read_rules},
        {"Read_File_To_Buffer", "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "1234");
             std::array<char, 16> text{};
             int64_t length = 16;
             trial.call([&] { return Read_File_To_Buffer(path.c_str(), text.data(), &length, 1); });
             const bool cut = trial.injection() != nullptr && trial.injection()->is_short();
             if (trial.result() == 0)
                 trial.check(std::string(text.data()) == (cut ? "2" : "234") && length == (cut ? 1 : 3), "the bytes");
             else
                 trial.check(length == 16, "no length after a failure");
         },
         0, read_rules},
        {"Write_File_From_Buffer",
         "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "0123456789");
             int64_t length = 3;
             trial.call([&] { return Write_File_From_Buffer(path.c_str(), "abc", &length, 2); });
             const bool unwritten = trial.injection() != nullptr && trial.injection()->call == Call::write &&
                                    !trial.injection()->is_short();
             trial.check(length == (unwritten ? 0 : 3), "the count of what was written");
         },
         0,
         {// The rest follows a short write.
          Rule(Call::write).when_short().is_overlooked(), Rule(Call::write).says(msg::write_bulk),
          Rule(Call::close).is_overlooked()}},
    };
}

}  // namespace

Scenarios path_scenarios() {
    return join({descriptor_scenarios(), status_scenarios(), whole_file_scenarios()});
}

}  // namespace faults
