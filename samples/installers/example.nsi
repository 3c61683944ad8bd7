; Installs a program for one user, without elevation, also over a running one. In a folder that holds the program,
; dllkupdate.dll and kupdate-exec.exe:
;   makensis -NOCD -DVERSION=2.0.0.0 -DOUT=example-2.0.exe PATH/example.nsi
; Silently: example-2.0.exe /S, uninstall.exe /S. Exit codes: 0; 1 when the files could not be replaced, and the former
; version stays; 2 for an end before that. Publish it with args=/S.
!ifndef NAME
  !define NAME "Example"
  !define PROGRAM "example.exe"
  ; Lets the program call DLLOnApplicationUninstall.
  !define REMOVAL "--uninstall"
!endif

Target amd64-unicode
!include LogicLib.nsh
!include FileFunc.nsh

Name "${NAME}"
OutFile "${OUT}"
InstallDir "$LOCALAPPDATA\Programs\${NAME}"
RequestExecutionLevel user
SetCompressor /SOLID lzma
SetOverwrite try
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\${NAME}"

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
  !insertmacro MoveAway ${PROGRAM}
  !insertmacro MoveAway dllkupdate.dll
  !insertmacro MoveAway kupdate-exec.exe
  File "${PROGRAM}"
  File "dllkupdate.dll"
  File "kupdate-exec.exe"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  ${If} ${Errors}
    !insertmacro MoveBack ${PROGRAM}
    !insertmacro MoveBack dllkupdate.dll
    !insertmacro MoveBack kupdate-exec.exe
    SetErrorLevel 1
    Abort "The files cannot be replaced."
  ${EndIf}
  RMDir /r "$INSTDIR\old"

  CreateShortcut "$SMPROGRAMS\${NAME}.lnk" "$INSTDIR\${PROGRAM}"
  WriteRegStr HKCU "${UNINSTALL_KEY}" DisplayName "${NAME}"
  WriteRegStr HKCU "${UNINSTALL_KEY}" DisplayVersion "${VERSION}"
  WriteRegStr HKCU "${UNINSTALL_KEY}" UninstallString '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKCU "${UNINSTALL_KEY}" QuietUninstallString '"$INSTDIR\uninstall.exe" /S'
  ; The program is not started here: in an update the version that runs starts its successor, when its user agrees.
SectionEnd

Section Uninstall
  ; It sends the last report and waits, for a while, until the executor has removed itself: only that may remove the
  ; executor, which the transfer service starts when the report has arrived.
  ExecWait '"$INSTDIR\${PROGRAM}" ${REMOVAL}'
  Delete "$INSTDIR\${PROGRAM}"
  Delete "$INSTDIR\dllkupdate.dll"
  RMDir /r "$INSTDIR\old"
  Delete "$INSTDIR\uninstall.exe"
  ; An executor that still waits for the network stays, and removes this folder with itself.
  RMDir "$INSTDIR"
  Delete "$SMPROGRAMS\${NAME}.lnk"
  DeleteRegKey HKCU "${UNINSTALL_KEY}"
SectionEnd
