// A system of its own for a program that measures: its root folder, with its own /etc/mtab, /etc/config/smb.conf and
// /share, and its process numbers. Beside each function of the library stands a bare loop of the calls that its job takes.
#pragma once

#include <cstddef>
#include <functional>

namespace bench {

// Throws where something that has to work did not.
void require(bool done, const char *what);

// Runs `body` as process 1 of the system; with it, all processes that it started end. Returns what `body` returned, or the
// status of a program that can't run here, after saying so.
int in_own_system(const std::function<int()> &body);

// ---- The mount table. Both return the number of its lines.

void write_mount_table(size_t lines);
size_t scan_mounts();
size_t read_mounts();  // keeps nothing

// ---- The shares. Both return their number.

// Makes a /share with that many shares, of which so many stand in smb.conf.
void make_shares(size_t shares, size_t in_configuration);
void remove_shares();
size_t scan_shares();
size_t look_at_shares();  // leaves out the look at the configuration

// ---- The processes.

// Starts one that waits. Those that are wanted have the name that is looked for, the others have not.
void start_process(bool wanted);
// The number of those that are wanted.
size_t search_processes();
// The number of all: the name is read and not compared.
size_t read_names();

}  // namespace bench
