// Client of the system manager, which watches over the card's processes.

#pragma once

namespace sysmgr {

class Client {
 public:
    // Switches the automatic recovery of processes on or off. False when the system manager can't be reached.
    // Any thread.
    static bool recovery_toggle(bool enable);

    // Tells whether recovery is on, and whether the system manager has marked it suspended. Both stay as they were
    // when it can't be reached, and it returns false. Any thread.
    static bool get_recovery_status(bool *enabled, bool *suspended);
};

}  // namespace sysmgr
