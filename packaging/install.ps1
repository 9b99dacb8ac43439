<#
.SYNOPSIS
Installs the firewall as a native module of IIS 7 and later (64-bit).

.DESCRIPTION
Copies the files to the target folder, writes a first configuration when there is none, lets the worker processes read
the module and write its lists and logs, and registers the module for all sites. Run it again to update: settings stay.

.PARAMETER Target
Where to install. Default: C:\Program Files\QivIpsIIs

.PARAMETER Language
en-US or zh-CN: the language of block pages and logs of a first installation.

.PARAMETER Protection
default, strict or off: how a first installation is set.

.EXAMPLE
powershell -ExecutionPolicy Bypass -File install.ps1 -Language zh-CN
#>
[CmdletBinding()]
param(
    [string] $Target = (Join-Path $env:ProgramFiles 'QivIpsIIs'),
    [ValidateSet('en-US', 'zh-CN')] [string] $Language = 'en-US',
    [ValidateSet('default', 'strict', 'off')] [string] $Protection = 'default'
)
$ErrorActionPreference = 'Stop'
Set-StrictMode -Version 2

$module = 'QivIpsIIs'
$source = Split-Path -Parent $MyInvocation.MyCommand.Path
$appcmd = Join-Path $env:windir 'System32\inetsrv\appcmd.exe'

function Invoke-Checked([string] $Program, [string[]] $Arguments) {
    $ErrorActionPreference = 'Continue' # words on stderr are no failure; the exit code is
    $output = & $Program @Arguments 2>&1 | Out-String
    if ($LASTEXITCODE -ne 0) { throw "$Program $($Arguments -join ' ') ended with $LASTEXITCODE`n$output" }
}

# A program file goes beside its place and is renamed, so that nobody ever sees a part of one. What a process still has
# loaded cannot be written over, but it can be renamed; it is deleted by the next installation.
function Install-Program([string] $Name) {
    $place = Join-Path $Target $Name
    Get-ChildItem -Path $Target -Filter "$Name.*.old" | Remove-Item -Force -ErrorAction SilentlyContinue
    Copy-Item -Force (Join-Path $source $Name) "$place.new"
    if (Test-Path $place) { Move-Item -Force $place "$place.$(Get-Date -Format yyyyMMddHHmmss).old" }
    Move-Item -Force "$place.new" $place
    Get-ChildItem -Path $Target -Filter "$Name.*.old" | Remove-Item -Force -ErrorAction SilentlyContinue
}

$identity = [Security.Principal.WindowsPrincipal][Security.Principal.WindowsIdentity]::GetCurrent()
if (-not $identity.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)) {
    throw 'Run this from an elevated PowerShell (as administrator).'
}
if (-not [Environment]::Is64BitProcess) { throw 'Run this from the 64-bit PowerShell.' }
if (-not (Test-Path $appcmd)) { throw 'IIS is not installed: there is no appcmd.exe.' }
foreach ($file in "$module.dll", 'qivctl.exe', 'rules') {
    if (-not (Test-Path (Join-Path $source $file))) { throw "$file is missing beside install.ps1; unpack the whole archive." }
}

# Worker processes keep the module that they have loaded; an update ends them so that the new one serves.
$registered = (& $appcmd list module $module) -ne $null
if ($registered) {
    Write-Host 'Stopping IIS for the update'
    Invoke-Checked 'iisreset.exe' @('/stop')
}
try {
    Write-Host "Copying to $Target"
    foreach ($folder in $Target, (Join-Path $Target 'config'), (Join-Path $Target 'debug')) {
        New-Item -ItemType Directory -Force -Path $folder | Out-Null
    }
    Install-Program "$module.dll"
    Install-Program 'qivctl.exe'
    Copy-Item -Recurse -Force (Join-Path $source 'rules') $Target
    Copy-Item -Force (Join-Path $source 'uninstall.ps1') $Target

    $config = Join-Path $Target 'config'
    if (-not (Test-Path (Join-Path $config '_config.db'))) {
        Write-Host 'Writing a first configuration'
        Invoke-Checked (Join-Path $Target 'qivctl.exe') @('init', $Target, '--language', $Language, '--profile', $Protection,
            '--rules', (Join-Path $Target 'rules'))
    }

    # S-1-5-32-568 is IIS_IUSRS, the group of all worker processes, whatever the language of Windows. They read the
    # module and its settings, and add to and rotate files in config\ and debug\; nobody but administrators changes the DLL.
    $workers = '*S-1-5-32-568'
    Invoke-Checked 'icacls.exe' @($Target, '/grant', "${workers}:(OI)(CI)RX", '/Q')
    foreach ($folder in $config, (Join-Path $Target 'debug')) {
        Invoke-Checked 'icacls.exe' @($folder, '/grant', "${workers}:(OI)(CI)M", '/Q')
    }

    if (-not $registered) {
        Write-Host 'Registering the module for all sites'
        # bitness64: application pools that run 32-bit processes go without the module instead of failing to start.
        $image = Join-Path $Target "$module.dll"
        Invoke-Checked $appcmd @('install', 'module', "/name:$module", "/image:$image", '/preCondition:bitness64', '/add:false')
        Invoke-Checked $appcmd @('add', 'module', "/name:$module", '/preCondition:bitness64')
    }
}
finally {
    if ($registered) { Invoke-Checked 'iisreset.exe' @('/start') }
}
Write-Host "Done. Settings: $Target\settings.json (then: qivctl pack). Log: $Target\debug\_log.log"
