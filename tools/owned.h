// The one way to own what a C function releases.
#pragma once

#include <cstdlib>
#include <memory>

template <auto release>
struct releaser {
    template <class type>
    void operator()(type *object) const {
        release(object);
    }
};

template <class type, auto release>
using owned = std::unique_ptr<type, releaser<release>>;

template <class type>
using heap_ptr = owned<type, free>;
