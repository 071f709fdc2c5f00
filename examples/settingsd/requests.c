#include "requests.h"

#include <errno.h>
#include <string.h>

#include "traced.h"

bool receive_request(SSL_Socket_Info *socket, Request *request) {
    request->unreadable = 0;
    request->length = receive_message(socket, &request->command, request->text, sizeof request->text);
    if (request->length >= 0)
        return true;

    Simp_Log_Write(g_ptslLog, "a request can't be read! (%d)", request->length);
    if (request->length == -EPROTO)
        request->unreadable = kBadRequest;
    else if (request->length == -EMSGSIZE)
        request->unreadable = kTooLong;
    return request->unreadable != 0;
}

static void say(Answer *answer, enum Status status, const char *text) {
    answer->status = status;
    answer->text = text;
    answer->length = (uint32_t)strlen(text);
}

// What people are told of a status for which nothing better is known.
static const char *message_of(enum Status status) {
    switch (status) {
        case kDone:
            return "";
        case kNoKey:
            return "no such key";
        case kBadRequest:
            return "bad request";
        case kTooLong:
            return "too long";
        case kBusy:
            return "the settings are locked by another process";
        default:
            return "failed";
    }
}

static void answer_get(Store *store, const Request *request, Answer *answer) {
    int32_t size = sizeof answer->value;
    const enum Status status = store_get(store, request->text, answer->value, &size);
    say(answer, status, status == kDone ? answer->value : message_of(status));
}

static void answer_set(Store *store, Request *request, Answer *answer) {
    // A key has no "=", so the first one ends it.
    char *equals = memchr(request->text, '=', (size_t)request->length);
    if (equals == NULL || !is_key(request->text, (size_t)(equals - request->text))) {
        say(answer, kBadRequest, "not a key");
        return;
    }

    const char *value = equals + 1;
    if (!is_value(value, (size_t)(request->text + request->length - value))) {
        say(answer, kBadRequest, "not a value");
        return;
    }

    *equals = '\0';
    const enum Status status = store_set(store, request->text, value);
    say(answer, status, message_of(status));
}

static void answer_unset(Store *store, const Request *request, Answer *answer) {
    const enum Status status = store_set(store, request->text, NULL);
    say(answer, status, message_of(status));
}

static void answer_list(Store *store, Answer *answer) {
    const enum Status status = store_list(store, &answer->lines, &answer->length);
    if (status == kDone) {
        answer->status = kDone;
        answer->text = answer->lines;
    } else {
        say(answer, status, message_of(status));
    }
}

void find_answer(Store *store, Request *request, Answer *answer) {
    answer->lines = NULL;
    if (request->unreadable != 0) {
        say(answer, request->unreadable, message_of(request->unreadable));
        return;
    }

    const bool names_key = request->command == kGet || request->command == kUnset;
    if (names_key && !is_key(request->text, (size_t)request->length)) {
        say(answer, kBadRequest, "not a key");
        return;
    }

    switch (request->command) {
        case kGet:
            answer_get(store, request, answer);
            break;
        case kSet:
            answer_set(store, request, answer);
            break;
        case kUnset:
            answer_unset(store, request, answer);
            break;
        case kList:
            answer_list(store, answer);
            break;
        default:
            say(answer, kBadRequest, "unknown command");
    }
}

void release_answer(Answer *answer) {
    TRACED_FREE(answer->lines);
}
