#include "role_orders.h"

#include <string>

#include "ApiZAL.h"
#include "DomainBackup.h"
#include "answers.h"
#include "commands.h"

namespace {

std::string command_of(RoleOrder order, const DomainBackup& backups) {
  switch (order) {
    case RoleOrder::backup:
      return commands::role_backup();
    case RoleOrder::master:
      return commands::role_master();
    case RoleOrder::master_with_domains:
      return commands::role_master(backups.load_all());
  }
  return "";
}

}  // namespace

bool is_role_taken(ApiZAL& api, RoleOrder order, const DomainBackup& backups) {
  const ApiZAL::Answer answer = api.run(command_of(order, backups));
  return answer && !answers::is_failure(rrm::JsonReader(answer->c_str()));
}
