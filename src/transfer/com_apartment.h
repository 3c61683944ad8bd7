// COM on the calling thread, for as long as it is needed.
#ifndef KUPDATE_TRANSFER_COM_APARTMENT_H_
#define KUPDATE_TRANSFER_COM_APARTMENT_H_

/// Initialises COM on the thread and balances that. A thread that is in an apartment already, of
/// whichever kind, is used as it is. Made and destroyed on the same thread.
class ComApartment {
 public:
  ComApartment();
  ~ComApartment();
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;

 private:
  bool entered_ = false;
};

#endif  // KUPDATE_TRANSFER_COM_APARTMENT_H_
