// The provider framework and the staging store.
#pragma once

#include "mce/StagingRecords.h"
#include "mce/StagingTables.h"
#include "mce/Provider.h"
#include "mce/ProviderBase.h"
#include "mce/ModuleEntry.h"
