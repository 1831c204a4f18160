// The host's record database: tables of records in a two-file database,
// read and written through cursors inside transactions.
#pragma once

#include "host/DirectoryData.h"
#include "host/StreamRecord.h"
#include "host/VDBDatabase.h"
#include "host/VDBIterator.h"
#include "host/VDBRecord.h"
