#include <winsock2.h>
#include <windows.h>

/// Loads the modules that are named on the command line one after the other, each as a careless program does.
int main(int nArguments, char** ppszArguments)
{
    for (int nArgument = 1; nArgument < nArguments; ++nArgument)
    {
        if (const HMODULE hModule = LoadLibraryA(ppszArguments[nArgument]))
        {
            FreeLibrary(hModule);
        }
    }
    return 0;
}
