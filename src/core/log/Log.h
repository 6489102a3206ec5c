#pragma once
// The logging facade; see FileLog.h.
#include "core/log/FileLog.h"
