// Standing in for OpenSSL's functions. The test program defines those that the library calls, so the library finds these
// definitions before OpenSSL's own (see openssl_hooks.cpp).
#pragma once

#include <dlfcn.h>
#include <openssl/ssl.h>

#include <functional>
#include <utility>

namespace tls_test {

// Hook<SSL_read> puts its body in the place of SSL_read for the calls of this thread, for as long as it lives. A call of
// SSL_read from inside the body goes to the real one, so a body can watch as well as answer.
template <auto Function>
class Hook;

template <class Result, class... Arguments, Result (*Function)(Arguments...)>
class Hook<Function> {
  public:
    explicit Hook(std::function<Result(Arguments...)> body)
        : body_(std::move(body)), outer_(std::exchange(t_current, this)) {}
    ~Hook() { t_current = outer_; }
    Hook(const Hook &) = delete;
    Hook &operator=(const Hook &) = delete;

    int calls() const { return calls_; }

    // For the definitions.
    static Result arrive(const char *name, Arguments... arguments) {
        static const auto real = reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name));
        Hook *hook = t_current;
        if (hook == nullptr)
            return real(arguments...);

        hook->calls_++;
        const Aside aside(hook);
        return hook->body_(arguments...);
    }

  private:
    struct Aside {
        explicit Aside(Hook *hook) : hook_(hook) { t_current = hook->outer_; }
        ~Aside() { t_current = hook_; }
        Aside(const Aside &) = delete;
        Aside &operator=(const Aside &) = delete;

        Hook *hook_;
    };

    static inline thread_local Hook *t_current = nullptr;

    std::function<Result(Arguments...)> body_;
    Hook *outer_;
    int calls_ = 0;
};

}  // namespace tls_test
