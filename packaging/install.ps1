<#
.SYNOPSIS
Installs the firewall as a native module of IIS 7 and later (64-bit), updates it or repairs it. Settings stay.

.DESCRIPTION
Everything is done by qivsetup.exe beside this script: it checks the server, tries the module, exchanges the files without
stopping IIS, registers the module for all sites, and takes everything back when a step fails or the site stops answering.

.PARAMETER Target
Where to install. Default: C:\Program Files\QivIpsIIs

.PARAMETER Language
en-US or zh-CN: the language of block pages and logs of a first installation.

.PARAMETER Protection
default, strict or off: how a first installation is set.

.PARAMETER Url
What must still answer afterwards. Default: the first site.

.PARAMETER Transcript
A file that every step is written to. Default: in the folder for temporary files; its name is shown.

.EXAMPLE
powershell -ExecutionPolicy Bypass -File install.ps1 -Language zh-CN

.EXAMPLE
powershell -ExecutionPolicy Bypass -File install.ps1 -WhatIf
#>
[CmdletBinding(SupportsShouldProcess = $true)]
param(
    [string] $Target,
    [ValidateSet('en-US', 'zh-CN')] [string] $Language = 'en-US',
    [ValidateSet('default', 'strict', 'off')] [string] $Protection = 'default',
    [string] $Url,
    [string] $Transcript
)
$ErrorActionPreference = 'Stop'
if (-not [Environment]::Is64BitOperatingSystem) { throw 'This needs a 64-bit Windows.' }
$arguments = @('install', '--language', $Language, '--profile', $Protection)
if ($Target) { $arguments += '--target', $Target }
if ($Url) { $arguments += '--url', $Url }
if ($Transcript) { $arguments += '--transcript', $Transcript }
if ($WhatIfPreference) { $arguments += '--what-if' }
& (Join-Path (Split-Path -Parent $MyInvocation.MyCommand.Path) 'qivsetup.exe') @arguments
exit $LASTEXITCODE
