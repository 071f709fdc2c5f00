// Copies of single entries.
#include <fcntl.h>
#include <sys/stat.h>
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

// Copies "from" to "to", by paths or relative to the scenario's folder.
template <class ByPath, class ByFolder>
struct Copy {
    ByPath by_path;
    ByFolder by_folder;

    std::function<void(Trial &)> paths(std::function<void(Trial &)> prepare) const {
        return [*this, prepare](Trial &trial) {
            prepare(trial);
            const std::string from = trial.path("from");
            const std::string to = trial.path("to");
            trial.call([&] {
                errno = 0;  // which a source that ends early would show
                return by_path(from.c_str(), to.c_str());
            });
        };
    }
    std::function<void(Trial &)> folders(std::function<void(Trial &)> prepare) const {
        return [*this, prepare](Trial &trial) {
            prepare(trial);
            const Descriptor folder(trial.folder().path(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            trial.call([&] {
                errno = 0;
                return by_folder(folder, "from", folder, "to");
            });
        };
    }
};

// A file copy undoes itself: no destination is left, also where an old one was there.
const Changes kUndone = {gone(".../to")};

Scenarios file_scenarios() {
    const Rules first_rules = {
        Rule(Call::fstatat).says(msg::file_no_source_status),
        Rule(Call::openat, 1).leaves(Files::as_before, kUndone).says(msg::file_no_source),
        Rule(Call::fstat, 1)
            .leaves(Files::as_before, kUndone)
            .says(msg::file_no_source),  // whether it is what was looked at
    };
    const Rules last_rules = {
        Rule(Call::malloc).leaves(Files::as_before, kUndone).says(msg::data_no_memory("Copy_File_Data")),
        // A source that ends early is copied as far as it goes, where no errno says otherwise.
        Rule(Call::read)
            .when_short()
            .gives(0)
            .with_code(0)
            .leaves(Files::as_unharmed, {new_file(".../to", "", 0711)})
            .says(msg::data_not_read),
        Rule(Call::read).leaves(Files::as_before, kUndone).says(msg::data_not_read),
        Rule(Call::write).when_short().is_overlooked(),
        Rule(Call::write)
            .leaves(Files::as_before, kUndone)
            .says({msg::write_bulk, msg::data_not_written("Copy_File_Data")}),
        // Where it was written, and a hold on it for the times.
        Rule({Call::fchmod, Call::fchown, Call::fstat, Call::openat, Call::syscall}).leaves(Files::as_before, kUndone),
        Rule(Call::close).is_overlooked(),
    };
    const auto no_dest = [](Call call, int nth) {
        return Rule(call, nth).leaves(Files::as_before, kUndone).says(msg::file_no_dest);
    };
    const Rules rules = join({first_rules, {no_dest(Call::openat, 2)}, last_rules});
    // The old file is held, opened, compared with what is held, and emptied.
    const Rules over_rules = join({first_rules,
                                   {no_dest(Call::openat, 2), no_dest(Call::openat, 3), no_dest(Call::fstat, 2),
                                    no_dest(Call::openat, 4), no_dest(Call::fstat, 3), no_dest(Call::ftruncate, 1)},
                                   last_rules});
    const Copy copy{[](const char *from, const char *to) { return Copy_File(from, to, nullptr, nullptr); },
                    [](int32_t from_folder, const char *from, int32_t to_folder, const char *to) {
                        return Copy_File_At(from_folder, from, to_folder, to, nullptr, nullptr);
                    }};
    const auto source = [](Trial &trial) { chmod(trial.file("from", "new content").c_str(), 04711); };
    const auto both = [=](Trial &trial) {
        source(trial);
        trial.file("to", "old");
    };
    return {
        {"Copy_File", "", copy.paths(source), 0, rules},
        {"Copy_File", "over an old file", copy.paths(both), 0, over_rules},
        {"Copy_File_At", "", copy.folders(source), 0, rules},
        {"Copy_File_At", "over an old file", copy.folders(both), 0, over_rules},
    };
}

Scenarios link_scenarios() {
    const Rules rules = {
        Rule(Call::fstatat).says(msg::link_no_status),
        Rule(Call::readlinkat).says(msg::link_not_read),
        Rule(Call::symlinkat).says(msg::link_not_made),
        // The link stays. Without a hold on it nothing of it can be set.
        Rule({Call::openat, Call::fstat}).leaves(Files::as_unharmed).says({msg::link_no_time, msg::link_no_owner}),
        Rule(Call::syscall).leaves(Files::as_unharmed).says(msg::link_no_time),
        Rule(Call::fchownat).leaves(Files::as_unharmed).says(msg::link_no_owner),
        Rule(Call::close).is_overlooked(),
    };
    const Copy copy{Copy_Symlink, Copy_Symlink_At};
    const auto source = [](Trial &trial) {
        trial.check(symlink("nowhere", trial.path("from").c_str()) == 0, "a link to copy");
    };
    return {
        {"Copy_Symlink", "", copy.paths(source), 0, rules},
        {"Copy_Symlink_At", "", copy.folders(source), 0, rules},
    };
}

Scenarios folder_scenarios() {
    const Rules rules = {
        Rule(Call::fstatat).says(msg::folder_no_status),
        Rule(Call::mkdirat).says(msg::folder_not_made),
        // Whether it is empty. A folder that may not be read is taken for it.
        Rule(Call::openat, 2).with(EACCES).is_overlooked(),
        Rule({Call::openat, Call::fstat, Call::getdents64})
            .leaves(Files::as_unharmed, {with_bits(".../to", 0755)})
            .says({msg::folder_no_mode, msg::folder_no_owner, msg::folder_no_time}),
        Rule(Call::close).is_overlooked(),
        // The umask narrowed the mode.
        Rule(Call::fchmodat)
            .is_overlooked()
            .leaves(Files::as_unharmed, {with_bits(".../to", 0755)})
            .says(msg::folder_no_mode),
        Rule(Call::fchownat).is_overlooked().says(msg::folder_no_owner),
        Rule(Call::syscall).leaves(Files::as_unharmed).says(msg::folder_no_time),
    };
    const Copy copy{Copy_Folder, Copy_Folder_At};
    const auto source = [](Trial &trial) {
        const std::string path = trial.path("from");
        mkdir(path.c_str(), 0755);
        chmod(path.c_str(), 0777);
    };
    return {
        {"Copy_Folder", "", copy.paths(source), 0, rules},
        {"Copy_Folder_At", "", copy.folders(source), 0, rules},
    };
}

Scenarios removal_scenarios() {
    return {
        {"Remove_File", "",
         [](Trial &trial) {
             const std::string path = trial.file("x", "1");
             trial.call([&] { return Remove_File(path.c_str()); });
         }},
        {"Remove_File_At", "",
         [](Trial &trial) {
             trial.file("x", "1");
             const Descriptor folder(trial.folder().path(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
             trial.call([&] { return Remove_File_At(folder, "x"); });
         }},
    };
}

}  // namespace

Scenarios copy_scenarios() {
    return join({file_scenarios(), link_scenarios(), folder_scenarios(), removal_scenarios()});
}

}  // namespace faults
