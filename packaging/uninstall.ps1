<#
.SYNOPSIS
Takes the firewall out of IIS and deletes its files. Settings, logs and what others put there stay.

.PARAMETER Target
Where it was installed. Default: the folder of this script, where an installation has put it.

.PARAMETER RemoveFiles
Settings and logs go too.

.PARAMETER Transcript
A file that every step is written to. Default: in the folder for temporary files; its name is shown.
#>
[CmdletBinding(SupportsShouldProcess = $true)]
param(
    [string] $Target = (Split-Path -Parent $MyInvocation.MyCommand.Path),
    [switch] $RemoveFiles,
    [string] $Transcript
)
$ErrorActionPreference = 'Stop'
if (-not [Environment]::Is64BitOperatingSystem) { throw 'This needs a 64-bit Windows.' }
# A copy: a program that runs cannot be deleted.
$setup = Join-Path ([IO.Path]::GetTempPath()) ('qivsetup-' + [Guid]::NewGuid() + '.exe')
Copy-Item (Join-Path (Split-Path -Parent $MyInvocation.MyCommand.Path) 'qivsetup.exe') $setup -WhatIf:$false
$arguments = @('uninstall', '--target', $Target)
if ($RemoveFiles) { $arguments += '--remove-settings' }
if ($Transcript) { $arguments += '--transcript', $Transcript }
if ($WhatIfPreference) { $arguments += '--what-if' }
& $setup @arguments
$code = $LASTEXITCODE
Remove-Item $setup -WhatIf:$false
exit $code
