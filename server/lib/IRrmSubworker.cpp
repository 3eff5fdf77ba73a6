#include "IRrmSubworker.h"

#include "ApEntry.h"
#include "RrmWorker.h"
#include "core/log.h"

namespace rrm {

IRrmSubworker::IRrmSubworker(RrmWorker& worker)
    : worker_(worker),
      config_(worker.config()),
      domain_(worker.name),
      aps_(worker.aps()),
      deleted_aps_(worker.deleted_aps()),
      unanswered_aps_(worker.unanswered_aps()) {}

IRrmSubworker::~IRrmSubworker() = default;

Radio* IRrmSubworker::find_radio(ApEntry& ap, std::int32_t radio_id, const char* what) {
  Radio* const radio = ap.radios.find(radio_id);
  if (radio == nullptr) {
    RRM_LOG(LOG_WARNING, "Skip %s for invalid/disabled radio_id=%d (ap %s)", what, radio_id,
            ap.mac.to_string().c_str());
  }
  return radio;
}

}  // namespace rrm
