#include "Groups.h"

void AddCan(CTool& /*oTool*/) {}
