// A web server that answers as no good one does, and that can be away.
#ifndef KUPDATE_PROOF_SERVICE_WEB_H_
#define KUPDATE_PROOF_SERVICE_WEB_H_

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace proof {

/// The bytes of a good answer: a file of that content from a server that has sizes and ranges.
std::string GoodAnswer(std::string_view content);
/// An answer with that first line ("404 Not Found"), these header lines and this body.
std::string AnswerOf(std::string_view status, std::string_view headers, std::string_view body = {});

/// Serves one connection after the other on a port of 127.0.0.1 that it keeps. The query of an
/// address does not count for the answer. Answers that end with "..." never end: every 50 ms some
/// bytes more follow.
class OddWeb {
 public:
  OddWeb();
  ~OddWeb();
  OddWeb(const OddWeb&) = delete;
  OddWeb& operator=(const OddWeb&) = delete;

  /// What the path gets from now on.
  /// @param toHead  when HEAD gets another answer than GET
  void Answer(const std::string& path, std::string toGet, std::string toHead = {});
  /// Nobody listens on the port any more; then somebody does again.
  void GoAway();
  void ComeBack();

  std::string Url(const std::string& path) const;
  /// The addresses that were asked for by GET and answered, in their order.
  std::vector<std::string> Asked() const;

 private:
  struct Pair {
    std::string toGet;
    std::string toHead;
  };

  void Serve();
  void Handle(std::uintptr_t socket);

  mutable std::mutex mutex_;
  std::map<std::string, Pair> answers_;
  std::vector<std::string> asked_;
  std::uintptr_t listener_ = 0;
  unsigned short port_ = 0;
  bool away_ = true;
  std::thread thread_;
};

}  // namespace proof

#endif  // KUPDATE_PROOF_SERVICE_WEB_H_
