#include "IRrmSubworker.h"

#include "RrmWorker.h"

namespace rrm {

IRrmSubworker::IRrmSubworker(RrmWorker& worker)
    : worker_(worker),
      config_(worker.config()),
      domain_(worker.name),
      aps_(worker.aps()),
      deleted_aps_(worker.deleted_aps()),
      unanswered_aps_(worker.unanswered_aps()) {}

IRrmSubworker::~IRrmSubworker() = default;

}  // namespace rrm
