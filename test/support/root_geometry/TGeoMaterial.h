#pragma once

#include "test/support/root_geometry/StandIn.h"
