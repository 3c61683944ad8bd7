#include "standin/standin_test_client.h"

#include "util/text.h"

namespace standin_test {

std::string Ok(int size) {
  return "HTTP/1.1 200 OK\r\nAccept-Ranges: bytes\r\nContent-Length: " + std::to_string(size) +
         "\r\n\r\n";
}

std::string Client::Id() const {
  wchar_t text[40] = L"";
  ::StringFromGUID2(id, text, 40);
  return NarrowUtf8(text);
}

BG_JOB_STATE Client::State() const {
  BG_JOB_STATE state = BG_JOB_STATE_QUEUED;
  EXPECT_EQ(S_OK, job->GetState(&state));
  return state;
}

bool Client::Reaches(BG_JOB_STATE state) const {
  return Eventually([&] { return State() == state; });
}

HRESULT Client::Error() const {
  IBackgroundCopyErrorPtr error;
  BG_ERROR_CONTEXT context = BG_ERROR_CONTEXT_NONE;
  HRESULT code = S_OK;
  if (job->GetError(&error) == S_OK) error->GetError(&context, &code);
  return code;
}

Standin::Standin() {
  fs::remove_all(target_);
  fs::create_directories(target_);
  EXPECT_EQ(S_OK, manager_.CreateInstance(__uuidof(BackgroundCopyManager)));
}

Standin::~Standin() {
  service_.Control({});
  for (const Client& client : clients_) client.job->Cancel();
}

HRESULT Standin::CreateJob(Client* client) {
  return manager_->CreateJob(L"job", BG_JOB_TYPE_DOWNLOAD, &client->id, &client->job);
}

Client Standin::Create() {
  Client client;
  EXPECT_EQ(S_OK, CreateJob(&client));
  client.job2 = client.job;
  return clients_.emplace_back(client);
}

Client Standin::Start(const std::string& url, const std::wstring& name) {
  Client client = Create();
  Start(client, url, name);
  return client;
}

void Standin::Start(const Client& client, const std::string& url, const std::wstring& name) {
  const std::wstring address = WidenUtf8(url[0] == '/' ? HttpUrl(url.substr(1)) : url);
  EXPECT_EQ(S_OK, client.job->AddFile(address.c_str(), (target_ / name).c_str()));
  EXPECT_EQ(S_OK, client.job->Resume());
}

HRESULT Standin::Find(const Client& client) {
  IBackgroundCopyJobPtr job;
  return manager_->GetJob(client.id, &job);
}

std::vector<fs::path> Standin::TempFiles() {
  std::vector<fs::path> found;
  for (const fs::path& path : fs::directory_iterator(target_)) {
    if (path.filename().wstring().starts_with(L"BIT")) found.push_back(path);
  }
  return found;
}

}  // namespace standin_test
