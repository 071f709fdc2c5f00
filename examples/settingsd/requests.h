// Requests and their answers.
#ifndef SETTINGSD_REQUESTS_H
#define SETTINGSD_REQUESTS_H

#include <korvex_util.h>
#include <stdbool.h>
#include <stdint.h>

#include "protocol.h"
#include "store.h"

typedef struct Request {
    enum Status unreadable;  // why it could not be read, which is its answer; 0 for one that could
    uint8_t command;
    int32_t length;
    char text[kMaxRequest + 1];
} Request;

typedef struct Answer {
    enum Status status;
    const char *text;
    uint32_t length;
    char *lines;                  // the text of a list, given back by release_answer
    char value[kMaxRequest + 1];  // the text of a get
} Answer;

// Receives a request. False when none came; one that can't be read is one, too.
bool receive_request(SSL_Socket_Info *socket, Request *request);

// Does what is asked for.
void find_answer(Store *store, Request *request, Answer *answer);
void release_answer(Answer *answer);

#endif
