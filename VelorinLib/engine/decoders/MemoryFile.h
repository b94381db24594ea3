// The former name of MemoryFileHandle.
#pragma once

#include "engine/memory/MemoryFileHandle.h"

namespace velorin {
using MemoryFile = MemoryFileHandle;
}
