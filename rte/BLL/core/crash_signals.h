// What happens when the process crashes. Not installed.
#pragma once

// From now on a fatal signal is told to the reporter behind `socket` before the process dies by it.
void crashSignalsInstall(int socket);
