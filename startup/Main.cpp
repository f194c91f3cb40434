#include "Include/UtilFile.h"
#include "startup/TKDAST.h"

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE, LPWSTR lpCmdLine, int)
{
    RestrictModuleSearch();
    return RunTrayAgent(hInstance, lpCmdLine);
}
