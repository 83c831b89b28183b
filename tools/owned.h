// The library's owning pointer, and its form for what malloc made.
#pragma once

#include <cstdlib>
#include <tesra_owned.h>

template <class type>
using heap_ptr = tesra_owned<type, free>;
