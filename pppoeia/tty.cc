#include "pppoeia/tty.h"

#include "base/system_log.h"
#include "base/terminal.h"

#include <syslog.h>

void pppoeia_send_stream_to_tty(const std::stringstream& text, const std::string& path)
{
  if (path.empty())
    return;
  if (const char* const error = terminal_write(path, text.view()))
    system_log(LOG_CRIT, ("\t PPPoEIA: " + (error + path) + "\n").c_str());
}
