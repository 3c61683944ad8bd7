; Installs the program for one user, without elevation, also over a running one:
;   makensis -DVERSION=2 -DPROGRAM=build/example.exe -DLIBRARY=dllkupdate.dll -DEXECUTOR=kupdate-exec.exe -DOUT=example-2.0.exe example.nsi
; Silently: example-2.0.exe /S. Exit code: 0; 1 when the files could not be replaced, and the former version stays;
; 2 for an end before that. Publish it with args=/S.
Target amd64-unicode
!include LogicLib.nsh
!include FileFunc.nsh

Name "Example"
OutFile "${OUT}"
InstallDir "$LOCALAPPDATA\Programs\Example"
RequestExecutionLevel user
SetCompressor /SOLID lzma
SetOverwrite try
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Example"

Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

Var old

; While an update is installed, the program and the executor run: they can be renamed, but not overwritten or deleted.
!macro MoveAway file
  ${If} ${FileExists} "$INSTDIR\${file}"
    Rename "$INSTDIR\${file}" "$old\${file}"
  ${EndIf}
!macroend
!macro MoveBack file
  ${If} ${FileExists} "$old\${file}"
    Delete "$INSTDIR\${file}"
    Rename "$old\${file}" "$INSTDIR\${file}"
  ${EndIf}
!macroend

Section
  SetOutPath "$INSTDIR"
  ; Former versions that have ended since; those that still run stay until the next update.
  RMDir /r "$INSTDIR\old"
  GetTempFileName $old "$INSTDIR"
  Delete "$old"
  ${GetFileName} "$old" $old
  StrCpy $old "$INSTDIR\old\$old"
  CreateDirectory "$old"

  ClearErrors
  !insertmacro MoveAway example.exe
  !insertmacro MoveAway dllkupdate.dll
  !insertmacro MoveAway kupdate-exec.exe
  File /oname=example.exe "${PROGRAM}"
  File /oname=dllkupdate.dll "${LIBRARY}"
  File /oname=kupdate-exec.exe "${EXECUTOR}"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  ${If} ${Errors}
    !insertmacro MoveBack example.exe
    !insertmacro MoveBack dllkupdate.dll
    !insertmacro MoveBack kupdate-exec.exe
    SetErrorLevel 1
    Abort "The files cannot be replaced."
  ${EndIf}
  RMDir /r "$INSTDIR\old"

  CreateShortcut "$SMPROGRAMS\Example.lnk" "$INSTDIR\example.exe"
  WriteRegStr HKCU "${UNINSTALL_KEY}" DisplayName "Example"
  WriteRegStr HKCU "${UNINSTALL_KEY}" DisplayVersion "${VERSION}.0.0.0"
  WriteRegStr HKCU "${UNINSTALL_KEY}" UninstallString '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKCU "${UNINSTALL_KEY}" QuietUninstallString '"$INSTDIR\uninstall.exe" /S'
  ; The program is not started here: in an update the version that runs starts its successor, when its user agrees.
SectionEnd

Section Uninstall
  ExecWait '"$INSTDIR\example.exe" --uninstall'
  ; The last report is on its way. When it is delivered the executor removes the program's data and itself. Without a
  ; network it stays for that, and follows later.
  StrCpy $0 0
  ${DoWhile} $0 < 100
    ${If} ${FileExists} "$INSTDIR\kupdate-exec.exe*"
      Sleep 200
      IntOp $0 $0 + 1
    ${Else}
      StrCpy $0 100
      Delete "$APPDATA\Krelix\Updater\kupdate-exec-example.log"
    ${EndIf}
  ${Loop}
  Delete "$INSTDIR\example.exe"
  Delete "$INSTDIR\dllkupdate.dll"
  RMDir /r "$INSTDIR\old"
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
  Delete "$SMPROGRAMS\Example.lnk"
  DeleteRegKey HKCU "Software\Example"
  DeleteRegKey HKCU "${UNINSTALL_KEY}"
SectionEnd
