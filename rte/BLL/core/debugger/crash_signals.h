// What happens when the process crashes. Not installed.
#pragma once

#include "rte/BLL/core/debugger/reporter_process.h"

// From now on a fatal signal is told to the reporter before the process dies by it. To be called once.
void crashSignalsInstall(const reporterProcess_t& reporter);
