#include "Groups.h"

void AddI2c(CTool& /*oTool*/) {}
