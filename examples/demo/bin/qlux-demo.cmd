@echo off
rem Qlux Demo: greets the user and notes each run in var\, beside bin\.
setlocal
set "here=%~dp0.."
echo Hello from Qlux Demo 1.2 in %here%
if not exist "%here%\var" mkdir "%here%\var"
echo %DATE% %TIME%>>"%here%\var\last-run.log"
