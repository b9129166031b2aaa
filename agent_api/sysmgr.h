// Client of the system manager, which watches over the card's processes. Rules for all operations:
// agent_api/sdk_ret.h; these report failures as false.

#pragma once

namespace sysmgr {

class Client {
 public:
    // Switches the automatic recovery of processes on or off. False when the system manager can't be reached; the
    // services ignore it, and no client learns of it.
    static bool recovery_toggle(bool enable);

    // Reports whether recovery is on, and whether the system manager has marked it suspended; the second is read only
    // when the first is false. The caller sets both to false before. When the system manager can't be reached,
    // returns false and leaves both as they are: the services ignore the result and report recovery as off.
    static bool get_recovery_status(bool *enabled, bool *suspended);
};

}  // namespace sysmgr
