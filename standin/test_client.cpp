#include "standin/test_client.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "util/clock.h"
#include "util/text.h"

namespace standin_test {

std::wstring Setting(const wchar_t* name) {
  const wchar_t* const value = ::_wgetenv(name);
  return value ? value : L"";
}

std::string ReadAll(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteAll(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string IdText(const GUID& id) {
  wchar_t text[40] = L"";
  ::StringFromGUID2(id, text, 40);
  return NarrowUtf8(text);
}

std::wstring OwnPath() {
  wchar_t path[MAX_PATH] = L"";
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

bool Eventually(const std::function<bool()>& done, int rounds) {
  for (int i = 0; i < rounds; ++i) {
    if (done()) return true;
    SleepMilliseconds(20);
  }
  return false;
}

BG_JOB_STATE Client::State() const {
  BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
  EXPECT_EQ(S_OK, job->GetState(&state));
  return state;
}

BG_JOB_PROGRESS Client::Progress() const {
  BG_JOB_PROGRESS progress = {};
  EXPECT_EQ(S_OK, job->GetProgress(&progress));
  return progress;
}

HRESULT Client::ErrorCode(BG_ERROR_CONTEXT* context) const {
  IBackgroundCopyErrorPtr error;
  HRESULT code = S_OK;
  return job->GetError(&error) == S_OK && error->GetError(context, &code) == S_OK ? code : S_OK;
}

bool Client::Reaches(BG_JOB_STATE state) const {
  return Eventually([&] { return State() == state; });
}

Standin::Standin() {
  Control("");
  journalStart_ = ReadAll(folder_ / "journal.jsonl").size();
  fs::remove_all(target_);
  fs::create_directories(target_);
  EXPECT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
}

Standin::~Standin() {
  Control("");
  for (const Client& client : clients_) client.job->Cancel();
}

int Standin::CountInJournal(const std::string& text) {
  const std::string journal = Journal();
  int count = 0;
  for (std::size_t at = journal.find(text); at != journal.npos; at = journal.find(text, at + 1)) {
    ++count;
  }
  return count;
}

Client Standin::Create() {
  Client client;
  EXPECT_EQ(S_OK, manager_->CreateJob(L"job", BG_JOB_TYPE_DOWNLOAD, &client.id, &client.job));
  client.job2 = client.job;
  clients_.push_back(client);
  return client;
}

Client Standin::Start(const std::wstring& url, const std::wstring& name) {
  Client client = Create();
  EXPECT_EQ(S_OK, Add(client, url, name));
  EXPECT_EQ(S_OK, client.job->Resume());
  return client;
}

HRESULT Standin::Add(const Client& client, const std::wstring& url, const std::wstring& name) {
  return client.job->AddFile((url[0] == L'/' ? http_ + url : url).c_str(),
                             (target_ / name).c_str());
}

ULONG Standin::CountJobs(DWORD flags) {
  IEnumBackgroundCopyJobsPtr list;
  ULONG count = 0;
  EXPECT_EQ(S_OK, manager_->EnumJobs(flags, &list));
  EXPECT_EQ(S_OK, list->GetCount(&count));
  return count;
}

std::vector<fs::path> Standin::TempFiles() {
  std::vector<fs::path> found;
  for (const fs::path& path : fs::directory_iterator(target_)) {
    if (path.filename().wstring().starts_with(L"BIT")) found.push_back(path);
  }
  return found;
}

}  // namespace standin_test
