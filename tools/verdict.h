// The verdict on a chain, once its blocks are known.
#pragma once

#include "check.h"

#include <string>

std::string verdict_on(const input &chain, const finding &found);
