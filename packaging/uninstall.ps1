<#
.SYNOPSIS
Takes the firewall out of IIS. Settings and logs stay unless -RemoveFiles is given.

.PARAMETER Target
Where it was installed. Default: C:\Program Files\QivIpsIIs

.PARAMETER RemoveFiles
Deletes the installation folder with its settings and logs.
#>
[CmdletBinding()]
param(
    [string] $Target = (Join-Path $env:ProgramFiles 'QivIpsIIs'),
    [switch] $RemoveFiles
)
$ErrorActionPreference = 'Stop'
Set-StrictMode -Version 2

$module = 'QivIpsIIs'
$appcmd = Join-Path $env:windir 'System32\inetsrv\appcmd.exe'
$identity = [Security.Principal.WindowsPrincipal][Security.Principal.WindowsIdentity]::GetCurrent()
if (-not $identity.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)) {
    throw 'Run this from an elevated PowerShell (as administrator).'
}

if ((& $appcmd list module $module) -ne $null) {
    & $appcmd uninstall module $module
    if ($LASTEXITCODE -ne 0) { throw "appcmd uninstall module ended with $LASTEXITCODE" }
    Write-Host 'The module is no longer registered.'
}
else { Write-Host 'The module was not registered.' }

if ($RemoveFiles -and (Test-Path $Target)) {
    if (-not (Test-Path (Join-Path $Target "$module.dll"))) { throw "$Target does not look like an installation; not deleted." }
    & iisreset.exe /restart
    Remove-Item -Recurse -Force $Target
    Write-Host "$Target is deleted."
}
