// What owns a log, a lock or the library's messages can be moved at most.
#include <optional>
#include <utility>

#include "korvex/lock.hpp"
#include "korvex/log.hpp"

void use(korvex::log &log, korvex::file_lock &lock, korvex::library_log &messages) {
    korvex::log moved_log = std::move(log);
    korvex::file_lock moved_lock = std::move(lock);
    std::optional<korvex::file_lock> tried = korvex::file_lock::try_for("x", korvex::forever);
    (void)messages;
#ifdef MISTAKE_1
    korvex::log copy = moved_log;  // error: deleted
#endif
#ifdef MISTAKE_2
    korvex::file_lock copy = moved_lock;  // error: deleted
#endif
#ifdef MISTAKE_3
    korvex::library_log copy(messages);  // error: deleted
#endif
#ifdef MISTAKE_4
    korvex::file_lock copy = *tried;  // error: deleted
#endif
#ifdef MISTAKE_5
    korvex::log log = "/var/log/app.log";  // error: conversion from | no viable conversion
#endif
}
