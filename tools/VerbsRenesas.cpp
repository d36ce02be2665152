#include "Groups.h"

void AddRenesas(CTool& /*oTool*/) {}
