// The host core library: strings, paths, property bags, timestamps,
// child-process capture, containers and the engine connection.
#pragma once

#include "host/Array.h"
#include "host/BinaryData.h"
#include "host/Connection.h"
#include "host/DebugTrace.h"
#include "host/Exceptions.h"
#include "host/FilePath.h"
#include "host/Map.h"
#include "host/ProcessCapture.h"
#include "host/Properties.h"
#include "host/StreamRecord.h"
#include "host/String.h"
#include "host/Timestamp.h"
