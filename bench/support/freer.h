// What a C library hands out, freed by its own function: `std::unique_ptr<X509, Freer<X509_free>>`.
#pragma once

namespace bench {

template <auto Free>
struct Freer {
    template <typename Object>
    void operator()(Object *object) const {
        Free(object);
    }
};

}  // namespace bench
