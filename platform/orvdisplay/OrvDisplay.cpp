#include "orvdisplay/OrvDisplay.h"

#include "orvdisplay/OrvDisplayImp.h"

OrvDisplay *OrvDisplay::CreateComponent()
{
    return new orv::OrvDisplayImp;
}

void OrvDisplay::DeleteComponent(OrvDisplay *display)
{
    if (display == nullptr)
        return;
    auto *const implementation = static_cast<orv::OrvDisplayImp *>(display);
    implementation->Close();
    delete implementation;
}
