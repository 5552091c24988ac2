#pragma once

#include "libmessages/datafile.pb.h"
