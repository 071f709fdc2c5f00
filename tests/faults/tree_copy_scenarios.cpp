// Copies of whole trees.
#include <fcntl.h>

#include <cerrno>
#include <string>

#include "descriptors.h"
#include "file_scenarios.h"
#include "fileio.h"
#include "messages_fileio.h"
#include "messages_tree.h"
#include "trees.h"

namespace faults {
namespace {

using support::Descriptor;
using Messages = std::vector<Message>;

std::function<void(Trial &)> copying(void (*put)(Trial &)) {
    return [put](Trial &trial) {
        put(trial);
        const std::string from = trial.path("from");
        const std::string to = trial.path("to");
        trial.call([&] { return Copy_Folder_Tree(from.c_str(), to.c_str(), nullptr); });
    };
}

// What was copied before a failure stays.
const Changes kPart = {done(".../to"), gone(".../to/*"), done(".../to/*")};

// Of `syscall`, which sets times, the last is that of the top folder.
Rules top_rules(int last_time) {
    const auto not_held = [](Call call, int nth) {
        return Rule(call, nth).leaves(Files::as_before, kPart).says(msg::tree_no_mode);
    };
    return {
        Rule(Call::fstatat, 1).says(msg::tree_no_source),
        Rule(Call::fstatat, 2).is_overlooked(),  // no destination yet, whatever the reason
        Rule(Call::mkdirat, 1).says(msg::tree_no_dest),
        // The new top folder is held, seen to be empty, and opened. One that may not be read is taken for empty.
        not_held(Call::openat, 1),
        not_held(Call::fstat, 1),
        Rule(Call::openat, 2).with(EACCES).is_overlooked(),
        not_held(Call::openat, 2),
        not_held(Call::getdents64, 1),
        not_held(Call::openat, 3),
        not_held(Call::fstat, 2),
        Rule(Call::fchmodat, 1).leaves(Files::as_before, kPart).says(msg::tree_no_mode),
        // A folder that can't be opened, or is not the one that was found, is left out.
        Rule(Call::opendir).is_overlooked().leaves(Files::as_before, kPart).says(msg::tree_not_read),
        Rule(Call::fstat, 3).is_overlooked().leaves(Files::as_before, kPart).says(msg::tree_not_read),
        Rule(Call::malloc, walk_block::read_buffer)
            .is_overlooked()
            .leaves(Files::as_before, kPart)
            .says(msg::tree_not_read),
        Rule(Call::getdents64).leaves(Files::as_before, kPart),
        Rule(Call::fstatat, 3).leaves(Files::as_before, kPart).says(msg::tree_no_status),
        Rule(Call::syscall, last_time).leaves(Files::as_unharmed).says(msg::tree_no_time),
        Rule({Call::close, Call::closedir}).is_overlooked(),
    };
}

Rules file_rules() {
    const auto failed = [](Messages messages) {
        messages.push_back(msg::tree_no_file);
        return messages;
    };
    return join(
        {top_rules(2),
         {
             Rule(Call::openat, 4).leaves(Files::as_before, kPart).says(failed({msg::file_no_source})),
             Rule(Call::fstat, 4).leaves(Files::as_before, kPart).says(failed({msg::file_no_source})),
             Rule(Call::openat, 5).leaves(Files::as_before, kPart).says(failed({msg::file_no_dest})),
             Rule(Call::malloc).leaves(Files::as_before, kPart).says(failed({msg::data_no_memory("Copy_File_Data")})),
             // A source that ends early fails with the errno of the moment: there was no destination.
             Rule(Call::read)
                 .when_short()
                 .with_code(-ENOENT)
                 .leaves(Files::as_before, kPart)
                 .says(failed({msg::data_not_read})),
             Rule(Call::read).leaves(Files::as_before, kPart).says(failed({msg::data_not_read})),
             Rule(Call::write).when_short().is_overlooked(),
             Rule(Call::write)
                 .leaves(Files::as_before, kPart)
                 .says(failed({msg::write_bulk, msg::data_not_written("Copy_File_Data")})),
             Rule({Call::fchmod, Call::fchown, Call::syscall}).leaves(Files::as_before, kPart).says(failed({})),
         }});
}

Rules link_rules() {
    const auto failed = [](const Message &message) { return Messages{message, msg::tree_no_link}; };
    return join({top_rules(2),
                 {
                     Rule(Call::readlinkat).leaves(Files::as_before, kPart).says(failed(msg::link_not_read)),
                     Rule(Call::symlinkat).leaves(Files::as_before, kPart).says(failed(msg::link_not_made)),
                     Rule({Call::openat, Call::fstat})
                         .leaves(Files::as_before, kPart)
                         .says({msg::link_no_time, msg::link_no_owner, msg::tree_no_link}),
                     Rule(Call::syscall).leaves(Files::as_before, kPart).says(failed(msg::link_no_time)),
                     Rule(Call::fchownat).leaves(Files::as_before, kPart).says(failed(msg::link_no_owner)),
                 }});
}

Rules folder_rules() {
    const auto failed = [](const Message &message) { return Messages{message, msg::tree_no_folder}; };
    const Messages not_held = {msg::folder_no_mode, msg::folder_no_owner, msg::folder_no_time, msg::tree_no_folder};
    return join({top_rules(3),
                 {
                     Rule(Call::malloc, walk_block::pending_folder).leaves(Files::as_before, kPart),
                     Rule({Call::openat}).leaves(Files::as_before, kPart).says(not_held),
                     Rule(Call::fstat, 4).leaves(Files::as_before, kPart).says(not_held),
                     Rule(Call::fstat, 5).is_overlooked().says(msg::tree_not_read),
                     // There is nothing to copy into it.
                     Rule({Call::openat2, Call::fstat}).is_overlooked(),
                     Rule(Call::mkdirat, 2).leaves(Files::as_before, kPart).says(failed(msg::folder_not_made)),
                     Rule(Call::fchmodat, 2).is_overlooked().leaves(Files::as_before, kPart).says(msg::folder_no_mode),
                     Rule(Call::fchownat).is_overlooked().says(msg::folder_no_owner),
                     Rule(Call::syscall, 1).leaves(Files::as_before, kPart).says(failed(msg::folder_no_time)),
                     // The folder's own time, which goes to the top folder, is overwritten by that one's.
                     Rule(Call::syscall, 2).is_overlooked().says(msg::tree_no_time),
                 }});
}

}  // namespace

Scenarios tree_copy_scenarios() {
    const std::vector<Message> any_message = {msg::tree_no_source,
                                              msg::tree_no_dest,
                                              msg::tree_no_mode,
                                              msg::tree_not_read,
                                              msg::tree_no_status,
                                              msg::tree_no_file,
                                              msg::tree_no_link,
                                              msg::tree_no_folder,
                                              msg::tree_no_time,
                                              msg::file_no_source,
                                              msg::file_no_dest,
                                              msg::data_not_read,
                                              msg::write_bulk,
                                              msg::link_not_read,
                                              msg::link_not_made,
                                              msg::link_no_time,
                                              msg::link_no_owner,
                                              msg::folder_not_made,
                                              msg::folder_no_mode,
                                              msg::folder_no_time,
                                              msg::folder_no_owner,
                                              msg::data_no_memory("Copy_File_Data"),
                                              msg::data_not_written("Copy_File_Data")};
    return {
        {"Copy_Folder_Tree", "a file", copying(put_tree_of_file), 0, file_rules()},
        {"Copy_Folder_Tree", "a link", copying(put_tree_of_link), 0, link_rules()},
        {"Copy_Folder_Tree", "a folder", copying(put_tree_of_folder), 0, folder_rules()},
        // The order of the entries is the system's: which step a call belongs to is left open here.
        {"Copy_Folder_Tree",
         "all of them",
         copying(put_full_tree),
         0,
         {Rule().when_short().gives({0, -ENOENT}).leaves(Files::as_before, kPart),
          Rule(Call::fstatat, 1).says(msg::tree_no_source), Rule(Call::fstatat, 2).is_overlooked(),
          Rule(Call::mkdirat, 1).says(msg::tree_no_dest), Rule({Call::close, Call::closedir}).is_overlooked(),
          Rule(std::vector<Call>{Call::read, Call::write, Call::fchmod, Call::fchown, Call::readlinkat, Call::symlinkat,
                                 Call::mkdirat})
              .leaves(Files::as_before, kPart),
          // Those of a folder are overlooked, those of a file or link are not; ENOMEM where a folder can't be opened.
          Rule({Call::fchmodat, Call::fchownat, Call::syscall, Call::fstatat, Call::opendir, Call::getdents64,
                Call::malloc, Call::openat, Call::openat2, Call::fstat})
              .gives({0, -EPERM, -EROFS, -ENOSYS, -ENOENT, -EACCES, -EMFILE, -ENOMEM, -EBADF, -EIO, -EOVERFLOW})
              .leaves(Files::as_before, kPart)},
         any_message},
        {"Copy_Folder_Tree_At", "a file",
         [](Trial &trial) {
             put_tree_of_file(trial);
             const Descriptor folder(trial.folder().path(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
             trial.call([&] { return Copy_Folder_Tree_At(folder, "from", folder, "to", nullptr); });
         },
         0, join({{Rule(Call::readlink).gives(-EINVAL)}, file_rules()})},
    };
}

}  // namespace faults
