// Return codes of the agent's libraries, and the rules that all operations of agent_api/ share. Each header adds what
// is particular to its operations, and names every exception.
//
// Threads. Any number of threads may call an operation at once, also with the same key. The agent does the locking.
// Only event_thread.h, thread.h and debug_command.h are called on the service request thread and nowhere else.
// docs/integrating.md says on which threads the services run, and how long an operation may take there.
//
// Arguments. Pointers are not null, and point to records that live until the operation returns; the operation copies
// what it keeps. Keys, ranges, ports, handles of batches and the values in records come from clients: the services
// check only what a header says they check, so the operation refuses what it cannot use. A key is all zero when the
// client sent an empty id, zeros, or more than 16 bytes.
//
// Errors. SDK_RET_OK is success, every other value a failure, values without an enumerator included. Where a header
// names a code for a case, the services treat that code in a particular way. In all other cases any code will do: the
// client receives its translation to types.ApiStatus, in which every code without a row of its own is
// API_STATUS_ERROR.
//
// Outputs. The caller zeroes a record before it passes it in. After a failure the services ignore what is in it,
// unless the header says otherwise.
//
// Exceptions. An operation throws nothing of its own. It lets through, or turns into a code, the std::bad_alloc that
// a callback may throw.
//
// Walks, the operations with a callback. The walk calls it once per record, on its own thread and before it returns,
// without holding a lock that another operation needs, and in the order in which the client shall see the records.
// The record needs to live until the callback returns. After a failure the records that were passed on stay in the
// response.
//
// Changes. An operation with a batch adds a change to it, which takes effect when the batch is committed (batch.h);
// one without makes the change before it returns. An operation with a batch may refuse a change at once or leave that
// to the commit. Reads see what has been committed, so not the changes of a batch that is open.
//
// Records. Packed, integers in the processor's byte order; a static_assert holds each offset that both sides rely on.
// Reserved members are zero. The few records that are not packed say why.
//
// Classes. The services use the members that the headers declare, and never make or copy an object: what else a class
// holds, and what derives from it, belongs to the agent.

#pragma once

#include <cstdint>

// All codes: enumerator, value, text. The texts are the system's own, odd spellings and blanks included.
#define SDK_RET_CODES(ENTRY)                                                                         \
    ENTRY(SDK_RET_OK, 0, "ok")                                                                       \
    ENTRY(SDK_RET_OUT_OF_MEMORY, 1, "out of memory error")                                           \
    ENTRY(SDK_RET_INVALID_ARG, 2, "invalid arg")                                                     \
    ENTRY(SDK_RET_INVALID_OPERATION, 3, "invalid operation")                                         \
    ENTRY(SDK_RET_LOOKUP_FAILURE, 4, "lookup failure")                                               \
    ENTRY(SDK_RET_ALREADY_PRESENT, 5, "already present")                                             \
    ENTRY(SDK_RET_RESOURCE_EXHAUSTION, 6, "resource exhaustion")                                     \
    ENTRY(SDK_RET_HW_TABLE_FULL, 7, "hw table full")                                                 \
    ENTRY(SDK_RET_OUT_OF_BOUND, 8, "out-of-bound error")                                             \
    ENTRY(SDK_RET_HW_PROGRAMMING_ERROR, 9, "h/w programming error")                                  \
    ENTRY(SDK_RET_RETRY_OPERATION, 10, "retry the operation")                                        \
    ENTRY(SDK_RET_NO_OPERATION_PERFORMED, 11, "no operation performed")                              \
    ENTRY(SDK_RET_DUPLICATE_FREE, 12, "duplicate free")                                              \
    ENTRY(SDK_RET_COLLISION_DETECTED, 13, "collision detected")                                      \
    ENTRY(SDK_RET_MAX_RECIRC_EXCEEDED, 14, "maximum recirc exceeded")                                \
    ENTRY(SDK_RET_HW_READ_ERROR, 15, "h/w read error")                                               \
    ENTRY(SDK_RET_TRANSACTION_NOT_FOUND, 16, "transaction not found")                                \
    ENTRY(SDK_RET_TRANSACTION_EXISTS, 17, "transaction exists")                                      \
    ENTRY(SDK_RET_TRANSACTION_INCOMPLETE, 18, "transaction incomplete")                              \
    ENTRY(SDK_RET_COMMUNICATION_FAILURE, 19, "communication failure")                                \
    ENTRY(SDK_RET_HW_SW_OUT_OF_SYNC, 20, "h/w, s/w out of sync")                                     \
    ENTRY(SDK_RET_OBJECT_CLONE_FAILURE, 21, "object clone failure")                                  \
    ENTRY(SDK_RET_OPERATION_IN_PROGRESS, 22, "operation in progress")                                \
    ENTRY(SDK_RET_DEVICE_RESET_FAILED, 23, "device reset failed")                                    \
    ENTRY(SDK_RET_DPDK_COMPAT_CHECK_ERROR, 24, "dpdk device comapt check error")                     \
    ENTRY(SDK_RET_IPXE_COMPAT_CHECK_ERROR, 25, "ipxe device compat check error")                     \
    ENTRY(SDK_RET_NON_ETH_COMPAT_CHECK_ERROR, 26, "non-eth device compat check error")               \
    ENTRY(SDK_RET_DATAPATH_ASSIST_SYNC_INIT_FAILURE, 27, "data path assist sync init failure")       \
    ENTRY(SDK_RET_DATAPATH_ASSIST_OBJECTS_SYNC_FAILURE, 28, "data path assist objects sync failure") \
    ENTRY(SDK_RET_BGP_SYNC_INIT_FAILURE, 29, "BGP sync init failure")                                \
    ENTRY(SDK_RET_BGP_OBJECTS_SYNC_FAILURE, 30, "BGP objects sync failure")                          \
    ENTRY(SDK_RET_BGP_QUIESCE_START_FAILED, 31, "BGP quiesce start failed")                          \
    ENTRY(SDK_RET_BGP_QUIESCE_STOP_FAILED, 32, "BGP quiesce stop failed")                            \
    ENTRY(SDK_RET_HW_QUIESCE_START_FAILED, 33, "hardware quiesce start failed")                      \
    ENTRY(SDK_RET_HW_QUIESCE_STOP_FAILED, 34, "hardware quiesce stop failed")                        \
    ENTRY(SDK_RET_DEVICE_QUIESCE_START_FAILED, 35, "device quiesce start failed")                    \
    ENTRY(SDK_RET_DEVICE_QUIESCE_STOP_FAILED, 36, "device quiesce stop failed")                      \
    ENTRY(SDK_RET_PERSISTENT_STATE_SYNC_FAILED, 37, "persistent state sync failed")                  \
    ENTRY(SDK_RET_RESOURCE_MAPPING_CONFLICT, 38, "resource mapping conflict")                        \
    ENTRY(SDK_RET_OPERATION_TIMED_OUT, 39, "operation timed out")                                    \
    ENTRY(SDK_RET_PARTIAL_ENTRY_READ, 40, "partial entry is read ")                                  \
    ENTRY(SDK_RET_ENTRY_BUSY, 41, "entry is in-use/busy")                                            \
    ENTRY(SDK_RET_ENTRY_EXISTS_IN_HW, 42, "entry exists in h/w table")                               \
    ENTRY(SDK_RET_SERVICE_NOT_ACTIVE, 43, "service not running/active")                              \
    ENTRY(SDK_RET_GENERIC_ERROR, 44, "catch all generic error")                                      \
    ENTRY(SDK_RET_MAX_RETURN_VALUE, 255, "max return value")

namespace sdk {

// Outcome of a call into the agent's libraries.
enum [[nodiscard]] sdk_ret_t : uint32_t{
#define SDK_RET_ENUMERATOR(name, value, text) name = value,
    SDK_RET_CODES(SDK_RET_ENUMERATOR)
#undef SDK_RET_ENUMERATOR
};

}  // namespace sdk
