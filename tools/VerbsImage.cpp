#include "Groups.h"

void AddImage(CTool& /*oTool*/) {}
