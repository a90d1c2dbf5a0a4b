/// @file
/// What came back, partition by partition.
#ifndef ZRK4_SOAK_CAPACITY_H
#define ZRK4_SOAK_CAPACITY_H

#include <vector>

#include "run.h"
#include "stock.h"

namespace soak {

using proof::stock;

/// All partitions of a run; without the slots of the clients while there are any.
std::vector<stock> all_stock(bool with_clients);
/// Returns when nothing has come back any more for `quiet_ms`, at the latest after `patience_ms`.
std::vector<stock> settled_stock(bool with_clients, int quiet_ms, int patience_ms);
/// A line of the record for everything that is lost.
void tell(const record& log, const std::vector<stock>& all);
/// Brings back what only a repair can; a line for each thing that it found, and one for all.
void repair(const record& log, const settings& how);

} // namespace soak

#endif
