#include "resources/Icons.h"
#include "support/GuiTest.h"

ORV_GUI_TEST_MAIN_WITH(OrvInitResources())
