// The owner of a descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace korvex::cli {

class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0)
            close(number_);
    }
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    int get() const { return number_; }
    [[nodiscard]] int release() { return std::exchange(number_, -1); }

  private:
    int number_;
};

}  // namespace korvex::cli
