#include "net/peer_arguments.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <limits>

#include "fileio.h"
#include "socket.h"

namespace korvex::cli {
namespace {

// The first line. OpenSSL takes no more than 1024 bytes.
std::string read_password(const std::string &file) {
    char text[1025];
    int32_t length = sizeof text;
    if (const int32_t code = Simple_Read_File(file.c_str(), text, &length); code < 0)
        throw lookup_failure(file, code);
    const std::string line(text, static_cast<size_t>(length));
    return line.substr(0, line.find('\n'));
}

void refuse_unreadable(const std::string &file) {
    if (access(file.c_str(), R_OK) != 0)
        throw lookup_failure(file, -errno);
}

void check_usage(const PeerArguments &arguments) {
    const bool has_files = !arguments.cert.empty() || !arguments.ca.empty() || !arguments.password_file.empty();
    if (!arguments.tls && has_files)
        throw Failure(kUsage, "--cert, --ca and --password-file are for --tls");
    if (!arguments.tls && arguments.no_verify)
        throw Failure(kUsage, "--no-verify is for --tls");
    if (arguments.tls && arguments.is_sender && arguments.cert.empty())
        throw Failure(kUsage, "--tls needs --cert");
    if (arguments.tls && !arguments.is_sender && (arguments.cert.empty() || arguments.ca.empty()))
        throw Failure(kUsage, "--tls needs --cert and --ca");
    if (arguments.tls && !arguments.unix_path.empty())
        throw Failure(kUsage, "--tls is not for --unix");
}

// Where systems keep the authorities that they trust; OpenSSL's own variable first.
std::string system_authorities() {
    if (const char *const named = std::getenv("SSL_CERT_FILE"); named != nullptr && *named != '\0')
        return named;
    for (const char *const file : {"/etc/ssl/certs/ca-certificates.crt", "/etc/pki/tls/certs/ca-bundle.crt",
                                   "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"})
        if (access(file, R_OK) == 0)
            return file;
    throw Failure(kFailure, "this system has no list of trusted authorities; name one with --ca");
}

// Makes a context and drops it: so a wrong pass phrase is found before anybody connects.
void try_out(const TlsFiles &files) {
    SSL_CTX *context = nullptr;
    const int32_t code = CTX_Initialize(files.cert.c_str(), files.password.c_str(), files.ca.c_str(), &context);
    if (code == -EOPNOTSUPP)
        throw Failure(kFailure, "--tls: no OpenSSL found");
    if (code == -ENOENT)
        throw Failure(kFailure,
                      files.cert + ": no key for this certificate and pass phrase, or no certificate in " + files.ca);
    if (code < 0)
        throw file_failure(files.cert, code);
    CTX_Destroy(context);
}

}  // namespace

void add_peer_options(CLI::App &command, PeerArguments &arguments) {
    refuse_empty(*add_text(command, "--unix", arguments.unix_path, "Use the local socket PATH").type_name("PATH"));
    command.add_flag("--tls", arguments.tls, "Encrypt the connection; the other side must, too");
    refuse_empty(
        *add_text(command, "--cert", arguments.cert, "Certificate chain and private key for --tls").type_name("PEM"));
    refuse_empty(*add_text(command, "--ca", arguments.ca, "Trusted authorities for --tls").type_name("PEM"));
    refuse_empty(
        *add_text(command, "--password-file", arguments.password_file, "Pass phrase of the key, in the first line")
             .type_name("FILE"));
    // Shorter ones come close to the kernel's ticks, where the library can't tell a time-out from a byte.
    command
        .add_option("--timeout", arguments.given_timeout,
                    "Give up when nothing moves for so many milliseconds [120000]")
        ->check(CLI::Range(100, std::numeric_limits<int32_t>::max()).description(""))
        ->type_name("MS");
}

std::vector<std::string> positional_words(const PeerArguments &arguments, const std::vector<PositionalWord> &expected) {
    std::vector<std::string> words;
    words.reserve(expected.size());
    for (const PositionalWord &one : expected)
        words.push_back(one.word);

    // The parser fills the places from the left.
    if (!arguments.unix_path.empty()) {
        std::swap(words.front(), words.back());
        for (size_t i = 0; i + 1 < words.size(); ++i)
            if (!words[i].empty())
                throw Failure(kUsage, "--unix takes FILE alone");
    }
    for (size_t i = arguments.unix_path.empty() ? 0 : expected.size() - 1; i < expected.size(); ++i)
        if (words[i].empty())
            throw Failure(kUsage, std::string(expected[i].name) + " is required");
    return words;
}

int32_t port_of(const std::string &text) {
    int32_t port = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port < 1 || port > 65535)
        throw Failure(kUsage, "PORT: '" + text + "' is not a number from 1 to 65535");
    return port;
}

std::string address_of(const std::string &host) {
    char address[46];
    int32_t family = 0;
    const int32_t code = Domain_To_IP_Addr(host.c_str(), address, &family);
    // For an unknown name the system mostly gives no reason. The library's code is this one then.
    if (code < 0)
        throw Failure(kNegativeAnswer, host + ": no address" + (code == -EHOSTUNREACH ? "" : ": " + error_text(-code)));
    return address;
}

std::optional<TlsFiles> tls_files(const PeerArguments &arguments) {
    check_usage(arguments);
    if (!arguments.tls)
        return {};

    const std::string ca = arguments.ca.empty() ? system_authorities() : arguments.ca;
    refuse_unreadable(arguments.cert);
    refuse_unreadable(ca);
    TlsFiles files = {arguments.cert, ca,
                      arguments.password_file.empty() ? "" : read_password(arguments.password_file)};
    try_out(files);
    return files;
}

}  // namespace korvex::cli
