// Stands in for OpenSSL 1.0: its names alone, none of those that came later. Each call is noted, and succeeds.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

std::string g_steps;
char g_objects[4];  // what the pointers that are handed out lead to

void *const kMethod = &g_objects[0];
void *const kContext = &g_objects[1];
void *const kSession = &g_objects[2];
void *const kBio = &g_objects[3];

const char *name_of(const void *object) {
    const char *const names[] = {"method", "context", "session", "bio"};
    for (size_t i = 0; i < sizeof g_objects; i++)
        if (object == &g_objects[i])
            return names[i];
    return object == nullptr ? "null" : "something else";
}

__attribute__((format(printf, 1, 2))) void note(const char *format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    g_steps += line;
    g_steps += '\n';
}

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED const char *old_openssl_steps() {
    static std::string steps;
    steps.swap(g_steps);
    g_steps.clear();
    return steps.c_str();
}

EXPORTED int SSL_library_init() {
    note("SSL_library_init");
    return 1;
}

EXPORTED void SSL_load_error_strings() {
    note("SSL_load_error_strings");
}

EXPORTED const void *SSLv23_method() {
    note("SSLv23_method");
    return kMethod;
}

EXPORTED void *SSL_CTX_new(const void *method) {
    note("SSL_CTX_new %s", name_of(method));
    return kContext;
}

EXPORTED void SSL_CTX_free(void *context) {
    note("SSL_CTX_free %s", name_of(context));
}

EXPORTED int SSL_CTX_use_certificate_chain_file(void *context, const char *path) {
    note("SSL_CTX_use_certificate_chain_file %s %s", name_of(context), path);
    return 1;
}

EXPORTED void SSL_CTX_set_default_passwd_cb(void *context, int (*callback)(char *, int, int, void *)) {
    char text[16] = "";
    const int length = callback(text, sizeof text, 0, nullptr);
    note("SSL_CTX_set_default_passwd_cb %s %d %s", name_of(context), length, text);
}

EXPORTED int SSL_CTX_use_PrivateKey_file(void *context, const char *path, int type) {
    note("SSL_CTX_use_PrivateKey_file %s %s %d", name_of(context), path, type);
    return 1;
}

EXPORTED int SSL_CTX_load_verify_locations(void *context, const char *file, const char *folder) {
    note("SSL_CTX_load_verify_locations %s %s %s", name_of(context), file, folder == nullptr ? "null" : folder);
    return 1;
}

EXPORTED void *SSL_new(void *context) {
    note("SSL_new %s", name_of(context));
    return kSession;
}

EXPORTED void SSL_free(void *session) {
    note("SSL_free %s", name_of(session));
}

EXPORTED void *BIO_new_socket(int descriptor, int close) {
    note("BIO_new_socket %d %d", descriptor, close);
    return kBio;
}

EXPORTED void SSL_set_bio(void *session, void *in, void *out) {
    note("SSL_set_bio %s %s %s", name_of(session), name_of(in), name_of(out));
}

EXPORTED int SSL_connect(void *session) {
    note("SSL_connect %s", name_of(session));
    return 1;
}

EXPORTED int SSL_accept(void *session) {
    note("SSL_accept %s", name_of(session));
    return 1;
}

EXPORTED int SSL_shutdown(void *session) {
    note("SSL_shutdown %s", name_of(session));
    return 0;
}

EXPORTED int SSL_read(void *session, void *buffer, int size) {
    note("SSL_read %s %d", name_of(session), size);
    std::memset(buffer, 'r', static_cast<size_t>(size));
    return size;
}

EXPORTED int SSL_peek(void *session, void *buffer, int size) {
    note("SSL_peek %s %d", name_of(session), size);
    std::memset(buffer, 'p', static_cast<size_t>(size));
    return size;
}

EXPORTED int SSL_write(void *session, const void *, int size) {
    note("SSL_write %s %d", name_of(session), size);
    return size;
}
