// The provider framework and the staging store.
#pragma once

#include "mce/ModuleEntry.h"
#include "mce/Provider.h"
#include "mce/ProviderBase.h"
#include "mce/StagingRecords.h"
#include "mce/StagingTables.h"
