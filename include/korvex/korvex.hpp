/// @file
/// The whole C++ layer of korvex_util. Each header can be included by itself, too.
#ifndef KORVEX_KORVEX_HPP
#define KORVEX_KORVEX_HPP

#include "korvex/conf.hpp"
#include "korvex/error.hpp"
#include "korvex/file.hpp"
#include "korvex/lock.hpp"
#include "korvex/log.hpp"
#include "korvex/net.hpp"
#include "korvex/path_view.hpp"
#include "korvex/process.hpp"
#include "korvex/queue.hpp"
#include "korvex/system.hpp"
#include "korvex/text.hpp"
#include "korvex/tls.hpp"
#include "korvex/trace.hpp"
#include "korvex/tree.hpp"

#endif
