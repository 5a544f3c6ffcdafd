@echo off
rem Runs the tests of this folder on Windows and says which failed. Their output goes to run-tests.log beside this script.
setlocal
cd /d "%~dp0"
set failed=0
type nul > run-tests.log
for %%p in (volume_tests.exe unit_tests.exe parts\companion_tests.exe parts\host_tests.exe parts\webdav_tests.exe) do call :run %%p
for %%s in (missing encrypted plain conflict waiting waiting-new edited locked occupied folder-missing folder-stored equal) do call :run explorer\explorer.exe %%s --depth 2
set place=%TEMP%\quelcrypt-conformance
for %%f in (encrypted plain other) do mkdir "%place%\%%f"
copy /y conformance.json "%place%\quelcrypt.json" > nul
set QUELCRYPT_CONFIG=%place%\quelcrypt.json
call :run ..\bin\companion_conformance.exe ..\bin\QuelcryptLib64.dll "%place%\encrypted" "%place%\plain" "%place%\other"
rmdir /s /q "%place%"
if %failed% == 0 (echo All tests passed.) else (echo %failed% of these failed; run-tests.log says where.)
exit /b %failed%

:run
echo %*
%* >> run-tests.log 2>&1
rem A crash has a negative code, so "if errorlevel 1" would not see it.
if not %errorlevel% == 0 (
    echo     failed, with %errorlevel%
    set /a failed+=1
)
exit /b 0
