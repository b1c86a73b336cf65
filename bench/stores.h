// The stores measured, under the names they have in the results.
#pragma once

#include "bench/neighbours/hdf5store.h"
#include "bench/neighbours/sqlitestore.h"
#include "bench/velastore.h"

using Sqlite = neighbours::SqliteStore;
using Hdf5 = neighbours::Hdf5Store;
