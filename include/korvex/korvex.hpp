/// @file
/// The whole C++ layer of korvex_util. Each header can be included by itself, too.
#ifndef KORVEX_KORVEX_HPP
#define KORVEX_KORVEX_HPP

#include "korvex/conf.hpp"
#include "korvex/error.hpp"
#include "korvex/lock.hpp"
#include "korvex/log.hpp"
#include "korvex/path_view.hpp"

#endif
