// The Perforce migration module: command wrappers around the p4 client.
#pragma once

#include "mp4/MP4BranchCmds.h"
#include "mp4/MP4ChangeCmds.h"
#include "mp4/MP4ClientCmds.h"
#include "mp4/MP4CommandBase.h"
