// The orders that put the server into a role.
#pragma once

class ApiZAL;
class DomainBackup;

// With domains, a new master also restores what is known of them.
enum class RoleOrder { backup, master, master_with_domains };

// Gives the order to the server of the interface. False if it was not answered or refused.
bool is_role_taken(ApiZAL& api, RoleOrder order, const DomainBackup& backups);
