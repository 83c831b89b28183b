/*
 * tesra_owned<type, release> is a pointer that owns its object: it calls the C function `release`.
 */
#ifndef TESRA_OWNED_H
#define TESRA_OWNED_H

#include <memory>

template <auto release>
struct tesra_released_by {
    template <class type>
    void operator()(type *object) const {
        release(object);
    }
};

template <class type, auto release>
using tesra_owned = std::unique_ptr<type, tesra_released_by<release>>;

#endif
