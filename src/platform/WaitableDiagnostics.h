// Inspection of the named-object table, for tests and diagnostics.
#pragma once

namespace kiv::platform {

/// What the named-object table of the current namespace holds.
struct NamedObjectCensus {
    int objects = 0;          ///< named objects alive
    int processes = 0;        ///< processes holding handles
    int records = 0;          ///< (process, object) handle records
    bool consistent = false;  ///< the derived counts agree with the records
};

/// Counts the table under its lock. Reclaims nothing by itself, but taking a
/// lock abandoned by a dead process repairs the table first. False if the
/// table cannot be attached or locked.
bool TakeNamedObjectCensus(NamedObjectCensus* out);

/// Takes the table lock and never releases it: lets a test process die
/// holding it. False if the table cannot be attached or locked.
bool HoldNamedObjectTableLockForever();

}  // namespace kiv::platform
