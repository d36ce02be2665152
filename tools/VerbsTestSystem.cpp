#include "Groups.h"

void AddTestSystem(CTool& /*oTool*/) {}
