#pragma once

#include "support/LogReader.h"
