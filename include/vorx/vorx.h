// The whole VORX interface: a host includes this header and links vorx::vorx.
#pragma once

#include <vorx/base.h>
#include <vorx/buffers.h>
#include <vorx/core.h>
#include <vorx/develop.h>
#include <vorx/files.h>
#include <vorx/hr.h>
#include <vorx/internetional.h>
#include <vorx/lookup.h>
#include <vorx/math.h>
#include <vorx/qef.h>
#include <vorx/random.h>
#include <vorx/string.h>
#include <vorx/threading.h>
#include <vorx/timecode.h>
#include <vorx/xml.h>
