// The base of all objects that clients hold.
#ifndef KUPDATE_STANDIN_COM_OBJECT_H_
#define KUPDATE_STANDIN_COM_OBJECT_H_

#include <atomic>

#include "standin/lifetime.h"

struct _GUID;

namespace standin {

// The system's interfaces have no virtual destructor; these objects are deleted by Release alone.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// Counts the references of an object made by `new` and deletes it with the last one. Each object
/// is a user of the server. The first reference belongs to the maker.
template <class Interface>
class ComObject : public Interface {
 public:
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  unsigned long __stdcall AddRef() override { return ++references_; }
  unsigned long __stdcall Release() override {
    const unsigned long left = --references_;
    if (left == 0) delete this;
    return left;
  }
  long __stdcall QueryInterface(const _GUID& id, void** object) override {
    *object = nullptr;
    if (!Answers(id)) return kNoInterface;
    *object = static_cast<Interface*>(this);
    AddRef();
    return 0;
  }

 protected:
  explicit ComObject(Lifetime& lifetime) : hold_(lifetime) {}
  virtual ~ComObject() = default;

  /// Whether the object offers that interface. All that it offers are bases of `Interface`.
  virtual bool Answers(const _GUID& id) = 0;

 private:
  static constexpr long kNoInterface = static_cast<long>(0x80004002);

  std::atomic<unsigned long> references_ = 1;
  const LifetimeHold hold_;
};

#pragma GCC diagnostic pop

}  // namespace standin

#endif  // KUPDATE_STANDIN_COM_OBJECT_H_
