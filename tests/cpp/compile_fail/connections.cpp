// Sockets, sessions, queues, traced memory and temporary files have one owner, and nothing of a temporary list is kept.
#include <string>
#include <utility>

#include "korvex/korvex.hpp"

void use(korvex::socket &link, korvex::tls::session &session, korvex::queue<int> &queue, korvex::temporary_file &file,
         korvex::traced_resource &memory, korvex::tls::context &context) {
    korvex::socket moved = std::move(link);
    korvex::tls::session moved_session = std::move(session);
    korvex::temporary_file moved_file = std::move(file);
    auto batch = queue.pop_all();
    for (int &value : batch)
        value++;
    for (const korvex::mount &entry : korvex::mounts())
        (void)entry;
    (void)memory;
    (void)context;
#ifdef MISTAKE_1
    korvex::socket copy = moved;  // error: use of deleted function | deleted constructor | implicitly-deleted
#endif
#ifdef MISTAKE_2
    auto copy = moved_session;  // error: use of deleted function | deleted constructor | implicitly-deleted
#endif
#ifdef MISTAKE_3
    korvex::queue<int> copy = queue;  // error: use of deleted function | deleted constructor
#endif
#ifdef MISTAKE_4
    korvex::queue<int> copy = std::move(queue);  // error: use of deleted function | deleted constructor
#endif
#ifdef MISTAKE_5
    auto copy = batch;  // error: use of deleted function | deleted constructor | implicitly-deleted
#endif
#ifdef MISTAKE_6
    auto first = queue.pop_all().begin();  // error: use of deleted function | deleted member function
#endif
#ifdef MISTAKE_7
    korvex::traced_resource copy = memory;  // error: use of deleted function | deleted constructor
#endif
#ifdef MISTAKE_8
    auto copy = moved_file;  // error: use of deleted function | deleted constructor | implicitly-deleted
#endif
#ifdef MISTAKE_9
    korvex::mount entry = korvex::mounts().front();  // error: use of deleted function | deleted member function
#endif
#ifdef MISTAKE_10
    korvex::socket link = 3;  // error: conversion from | no viable conversion
#endif
#ifdef MISTAKE_11
    korvex::tls::context copy = context;  // error: use of deleted function | deleted constructor | implicitly-deleted
#endif
#ifdef MISTAKE_12
    struct throwing {
        throwing(throwing &&) {}
    };
    korvex::queue<throwing> jobs;  // error: must not be lost
#endif
}
