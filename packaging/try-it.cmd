@echo off
rem Shows what the agent can do, without installing anything: the stand-in service plays its story and starts the
rem agent where the story says so. More words on the line go to the stand-in: "try-it.cmd --help".
setlocal
cd /d "%~dp0"
set wait=pause
if not "%~1"=="" set wait=rem

echo The stand-in service plays its story with the agent. It opens windows, and types and clicks in them by itself:
echo please leave mouse and keyboard alone. An agent that runs already has to be ended before.
echo.
TKDAS.exe --demo %*
set result=%errorlevel%
echo.
if "%result%"=="0" echo The story is over, and everything held.
if not "%result%"=="0" echo The story ended with %result%. What the agent wrote down is in
if not "%result%"=="0" echo %LOCALAPPDATA%\Tessaran Development\Kestrel Desk Assist\TKDAST.log
%wait%
exit /b %result%
