// Trees measured and removed.
#include <fcntl.h>

#include <cerrno>
#include <string>

#include "descriptors.h"
#include "file_scenarios.h"
#include "fileio.h"
#include "messages_tree.h"
#include "trees.h"

namespace faults {
namespace {

using support::Descriptor;

// The walk over the full tree.
Scenarios state_scenarios() {
    const Rules rules = {
        Rule(Call::fstatat, 1).says(msg::state_no_top),
        Rule({Call::opendir, Call::fstat}).is_overlooked().says(msg::state_not_read),
        Rule(Call::malloc, walk_block::pending_folder),
        Rule(Call::malloc).is_overlooked().says(msg::state_not_read),
        // What can't be looked at is left out.
        Rule(Call::fstatat).is_overlooked().says(msg::state_no_status),
        Rule({Call::getdents64, Call::close}).is_overlooked(),
        Rule(Call::readlink).gives(-EINVAL),
    };
    const auto count = [](Trial &trial, const Folder_Tree_State &state) {
        if (trial.injection() == nullptr)
            trial.check(state.cnFiles == 3 && state.cnFolders == 2 && state.ullBytes == 21, "the figures");
        trial.check(state.cnFiles <= 3 && state.cnFolders <= 2 && state.ullBytes <= 21, "no figure is too high");
    };
    return {
        {"State_Folder_Tree", "",
         [=](Trial &trial) {
             put_full_tree(trial);
             const std::string path = trial.path("from");
             Folder_Tree_State state{};
             trial.call([&] { return State_Folder_Tree(path.c_str(), &state, nullptr); });
             count(trial, state);
         },
         0, rules},
        {"State_Folder_Tree_At", "",
         [=](Trial &trial) {
             put_full_tree(trial);
             const Descriptor folder(trial.folder().path(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
             Folder_Tree_State state{};
             trial.call([&] { return State_Folder_Tree_At(folder, "from", &state, nullptr); });
             count(trial, state);
         },
         0, rules},
    };
}

// What is left of the tree, whose entries come in the system's order: each as it was, or not.
const Changes kLess = {kept(".../from"), gone(".../from"), kept(".../from/*"), gone(".../from/*")};

// Errors inside the tree show in the removal of the top folder.
Rules removal_rules() {
    const auto kept = [](Rule rule) { return rule.gives(-ENOTEMPTY).leaves(Files::as_before, kLess); };
    return {
        Rule(Call::fstatat, 1),
        Rule(Call::readlink).gives(-EINVAL),
        kept(Rule({Call::opendir, Call::fstat}).says(msg::removal_not_read)),
        Rule(Call::malloc, walk_block::pending_folder).leaves(Files::as_before, kLess),
        kept(Rule(Call::malloc).says(msg::removal_not_read)),
        kept(Rule(Call::fstatat).says(msg::removal_no_status)),
        kept(Rule(Call::unlinkat).with(ENOENT)),
        kept(Rule(Call::unlinkat).says(msg::removal_no_file)),
        kept(Rule(Call::rmdir, 1).says(msg::removal_no_folder)),
        Rule(Call::rmdir, 2).leaves(Files::as_before, kLess),
        Rule(Call::getdents64).gives({0, -ENOTEMPTY}).leaves(Files::as_before, kLess),
        Rule(Call::close).is_overlooked(),
    };
}

Scenarios removal_scenarios() {
    // A folder in the tree that could not be emptied.
    const std::vector<Message> usual = {msg::removal_no_folder};
    // The walk goes on and meets another one that can't be removed.
    const Rules removal_then = {
        Rule(Call::unlinkat).gives(-ENOTEMPTY).leaves(Files::as_before, kLess).says(msg::removal_no_file),
        Rule(Call::rmdir).gives({-EACCES, -ENOTEMPTY}).leaves(Files::as_before, kLess),
        // Of what could not be removed and is found once more.
        Rule(Call::fstatat).leaves(Files::as_before, kLess).gives(-ENOTEMPTY).says(msg::removal_no_status),
        Rule(Call::fstatat).leaves(Files::as_before, kLess).gives(-ENOTEMPTY).says(msg::removal_no_status).alone(),
    };
    const Scenarios scenarios = {
        {"Remove_Folder_Tree", "",
         [](Trial &trial) {
             put_full_tree(trial);
             const std::string path = trial.path("from");
             trial.call([&] { return Remove_Folder_Tree(path.c_str(), nullptr); });
         },
         0, removal_rules(), usual},
        {"Remove_Folder_Tree", "a file",
         [](Trial &trial) {
             const std::string path = trial.file("x", "1");
             trial.call([&] { return Remove_Folder_Tree(path.c_str(), nullptr); });
         }},
        {"Remove_Folder_Tree_At", "",
         [](Trial &trial) {
             put_full_tree(trial);
             const Descriptor folder(trial.folder().path(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
             trial.call([&] { return Remove_Folder_Tree_At(folder, "from", nullptr); });
         },
         0, removal_rules(), usual},
    };
    return and_then(scenarios, removal_then);
}

}  // namespace

Scenarios tree_scenarios() {
    return join({state_scenarios(), removal_scenarios()});
}

}  // namespace faults
