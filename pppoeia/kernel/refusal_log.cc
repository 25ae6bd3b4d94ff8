#include "pppoeia/kernel/refusal_log.h"

#include "pppoeia/log.h"
#include "pppoeia/records.h"

#include <cstring>
#include <utility>

void refusal_log::refused(const send_refusals& refusals)
{
  if (count_ == 0) {
    told_at_ = clock::now();
    pppoeia_log(log_warning, "<%s> Pseudo device '%s' refuses records: %s (%u bytes).", bridge_.name, bridge_.dev_name,
                std::strerror(refusals.error), refusals.length);
  }
  count_ += refusals.count;
}

void refusal_log::taken()
{
  if (clock::now() - told_at_ < quiet_)
    return;
  pppoeia_log(log_warning, "<%s> Pseudo device '%s' takes records again, %llu were refused.", bridge_.name,
              bridge_.dev_name, static_cast<unsigned long long>(std::exchange(count_, 0)));
}
