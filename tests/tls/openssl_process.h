// The command line tool of OpenSSL as a peer: a process of its own, spoken to through pipes.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tls_test {

class OpensslProcess {
  public:
    // `openssl ARGUMENT...`; its standard error goes the way of its standard output.
    explicit OpensslProcess(const std::vector<std::string> &arguments);
    ~OpensslProcess();
    OpensslProcess(const OpensslProcess &) = delete;
    OpensslProcess &operator=(const OpensslProcess &) = delete;

    void write(const std::string &text) const;
    // Ends its standard input.
    void end_input();
    // Reads its output until `text` has come, or it ends; returns all since the last call.
    std::string read_until(const std::string &text);
    std::string read_all();
    // Waits for its end; what it returned.
    int exit_status();

  private:
    int input_ = -1;
    int output_ = -1;
    pid_t process_ = -1;
    std::string ahead_;
};

// Starts `openssl s_server` on a free port and returns when it listens.
class OpensslServer : public OpensslProcess {
  public:
    explicit OpensslServer(const std::vector<std::string> &options);
    int port() const { return port_; }

  private:
    int port_;
};

}  // namespace tls_test
