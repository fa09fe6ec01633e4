#include "support/GuiTest.h"

ORV_GUI_TEST_MAIN
