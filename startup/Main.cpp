#include "startup/TKDAST.h"

int WINAPI wWinMain(HINSTANCE hInstance, HINSTANCE, LPWSTR lpCmdLine, int)
{
    return RunTrayAgent(hInstance, lpCmdLine);
}
