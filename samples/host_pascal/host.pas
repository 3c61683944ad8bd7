{ A program that keeps itself up to date, in Pascal. docs/hosts.md has the command line, which all
  samples share. }
program Host;

{$mode objfpc}{$H+}
{$apptype console}

uses
  Windows, SysUtils, Classes;

const
  Done = 0;
  Failed = 1;
  NoUpdate = 2;
  WrongUsage = 3;

  InWork = 0;
  Found = 1;
  NothingNewer = 2;

  SecondsBetweenReports = 86400;
  PollMilliseconds = 200;

  Help =
    'usage: kupdate-host --id ID --version A.B.C.D --platform PLATFORM --feed URL' + LineEnding +
    '       [--report URL] [--executor PATH] [--wait SECONDS] [--check] [--install]' + LineEnding +
    '       [--uninstall]';

type
  EHost = class(Exception);

  { Boolean has one byte, as the library's truth values have. }
  TLibrary = record
    SetExecutorPath: function(Path: PWideChar): Int32; cdecl;
    Startup: function(Id, Platform_, Feed, Report: PAnsiChar;
      Period, Major, Minor, SubVer, Build: Int32; Release: Boolean): Int32; cdecl;
    Uninstall: function(Id: PAnsiChar): Int32; cdecl;
    IsUpdateAvailable: function(Id, Platform_: PAnsiChar; Major, Minor, SubVer, Build: Int32;
      Release: Boolean; Feed, Operation: PAnsiChar; Status: PInt32): Int32; cdecl;
    Install: function(ExitCode: PInt32): Int32; cdecl;
  end;

  { Texts for the library are UTF-8. }
  TOptions = record
    Id, Platform_, Feed, Report: UTF8String;
    Executor: UnicodeString;
    Version: array[0..3] of Int32;
    WaitMilliseconds: Int64;
    Check, Install, Uninstall: Boolean;
  end;

  { The call blocks until the installer has ended. }
  TInstallation = class(TThread)
  public
    Status, ExitCode: Int32;
    procedure Execute; override;
  end;

  PPWideChar = ^PWideChar;

function CommandLineToArgvW(Line: PWideChar; out Count: Int32): PPWideChar; stdcall;
  external 'shell32.dll';

var
  Lib: TLibrary;
  Options: TOptions;

{ Shows each line at once, also in a file. }
procedure Print(const Line: UTF8String);
begin
  WriteLn(Line);
  Flush(Output);
end;

procedure Expect(Status: Int32; const Failure: string);
begin
  if Status <> 0 then raise EHost.Create(Failure);
end;

function ProgramFolder: UnicodeString;
var
  Path: array[0..1023] of WideChar;
  Length: DWORD;
begin
  Length := GetModuleFileNameW(0, Path, 1024);
  if Length >= 1024 then raise EHost.Create('the path of the program is too long');
  SetString(Result, PWideChar(@Path), Length);
  Result := ExtractFilePath(Result);
end;

{ Takes the file beside the program, by its full path: the system would search for a bare name. }
procedure LoadTheLibrary;
var
  Module: HMODULE;

  function Find(const Name: AnsiString): Pointer;
  begin
    Result := GetProcAddress(Module, PAnsiChar(Name));
    if Result = nil then raise EHost.Create('dllkupdate.dll has no ' + Name);
  end;

begin
  Module := LoadLibraryW(PWideChar(ProgramFolder + 'dllkupdate.dll'));
  if Module = 0 then
    raise EHost.CreateFmt('loading dllkupdate.dll, system error %d', [GetLastError]);
  Pointer(Lib.SetExecutorPath) := Find('DLLSetExecutorPath');
  Pointer(Lib.Startup) := Find('DLLOnApplicationStartup');
  Pointer(Lib.Uninstall) := Find('DLLOnApplicationUninstall');
  Pointer(Lib.IsUpdateAvailable) := Find('DLLIsUpdateAvailable');
  Pointer(Lib.Install) := Find('DLLDownloadAndInstallSilentUpdate');
end;

procedure Start;
begin
  with Options do
  begin
    Expect(Lib.Startup(PAnsiChar(Id), PAnsiChar(Platform_), PAnsiChar(Feed), PAnsiChar(Report),
      SecondsBetweenReports, Version[0], Version[1], Version[2], Version[3], True), 'registering');
    Print(Format('registered as %s, version %d.%d.%d.%d',
      [Id, Version[0], Version[1], Version[2], Version[3]]));
  end;
end;

function Step(const Operation: AnsiString; const Failure: string): Int32;
begin
  Result := InWork;
  with Options do
    Expect(Lib.IsUpdateAvailable(PAnsiChar(Id), PAnsiChar(Platform_), Version[0], Version[1],
      Version[2], Version[3], True, PAnsiChar(Feed), PAnsiChar(Operation), @Result), Failure);
end;

{ Returns whether there is an update. Ends after a while by itself: the job waits as long as the
  server is away. }
function CheckForUpdate: Boolean;
var
  Begin_: QWord;
begin
  Step('start', 'starting the check');
  Print('check started');
  Begin_ := GetTickCount64;
  repeat
    case Step('check', 'reading the feed') of
      InWork: Print('poll: in work');
      Found:
        begin
          Print('poll: update found');
          Exit(True);
        end;
      NothingNewer:
        begin
          Print('poll: no update');
          Exit(False);
        end;
    else
      Print('poll: job failed');
      raise EHost.Create('downloading the feed');
    end;
    Sleep(PollMilliseconds);
  until Int64(GetTickCount64 - Begin_) >= Options.WaitMilliseconds;
  Step('stop', 'stopping the check');
  raise EHost.Create('waiting for the feed: it took too long');
end;

procedure TInstallation.Execute;
begin
  Status := Lib.Install(@ExitCode);
end;

{ A program with windows would handle its messages instead of waiting. }
procedure InstallUpdate;
var
  Installation: TInstallation;
begin
  Installation := TInstallation.Create(False);
  try
    Print('silent installation started');
    Installation.WaitFor;
    Expect(Installation.Status, 'the silent installation');
    Print(Format('installer exit code %d', [Installation.ExitCode]));
  finally
    Installation.Free;
  end;
end;

function Run: Integer;
begin
  if Options.Executor <> '' then Lib.SetExecutorPath(PWideChar(Options.Executor));
  Start;
  if Options.Check and not CheckForUpdate then Exit(NoUpdate);
  if Options.Install then InstallUpdate;
  if Options.Uninstall then
  begin
    Expect(Lib.Uninstall(PAnsiChar(Options.Id)), 'reporting the removal');
    Print('removal reported');
  end;
  Result := Done;
end;

function ParseVersion(Text: UnicodeString): Boolean;
var
  I, Dot: Integer;
begin
  Text := Text + '.';
  for I := 0 to 3 do
  begin
    Dot := Pos('.', Text);
    if not TryStrToInt(string(Copy(Text, 1, Dot - 1)), Options.Version[I]) or
      (Options.Version[I] < 0) or (Options.Version[I] > $FFFF) then
      Exit(False);
    Delete(Text, 1, Dot);
  end;
  Result := Text = '';
end;

function ParseArguments: Boolean;
var
  Words: PPWideChar;
  Count, I: Int32;
  Seconds: Int64;
  Name, Value: UnicodeString;
  HasVersion: Boolean = False;
begin
  Options.WaitMilliseconds := 60000;
  Words := CommandLineToArgvW(GetCommandLineW, Count);
  I := 1;
  while I < Count do
  begin
    Name := Words[I];
    Inc(I);
    if Name = '--check' then Options.Check := True
    else if Name = '--install' then Options.Install := True
    else if Name = '--uninstall' then Options.Uninstall := True
    else
    begin
      if I = Count then Exit(False);
      Value := Words[I];
      Inc(I);
      if Name = '--id' then Options.Id := UTF8Encode(Value)
      else if Name = '--platform' then Options.Platform_ := UTF8Encode(Value)
      else if Name = '--feed' then Options.Feed := UTF8Encode(Value)
      else if Name = '--report' then Options.Report := UTF8Encode(Value)
      else if Name = '--executor' then Options.Executor := Value
      else if Name = '--version' then HasVersion := ParseVersion(Value)
      else if (Name = '--wait') and TryStrToInt64(string(Value), Seconds) then
        Options.WaitMilliseconds := 1000 * Seconds
      else Exit(False);
    end;
  end;
  Options.Check := Options.Check or Options.Install;
  Result := HasVersion and (Options.Id <> '') and (Options.Platform_ <> '') and
    (Options.Feed <> '');
end;

begin
  { All texts of one byte per character are UTF-8, those on the way to the console as well. }
  SetMultiByteConversionCodePage(CP_UTF8);
  SetTextCodePage(Output, CP_UTF8);
  ExitCode := Failed;
  if not ParseArguments then
  begin
    Print(Help);
    Halt(WrongUsage);
  end;
  try
    LoadTheLibrary;
  except
    on Error: EHost do
    begin
      Print('failed: ' + Error.Message);
      Halt(Failed);
    end;
  end;
  try
    ExitCode := Run;
  except
    on Error: EHost do
      Print('failed: ' + Error.Message + LineEnding +
        '  see %APPDATA%\Krelix\Updater\kupdate-exec-' + Options.Id + '.log');
  end;
end.
