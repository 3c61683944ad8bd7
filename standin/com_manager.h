// The manager, which clients ask for jobs, and its class factory.
#ifndef KUPDATE_STANDIN_COM_MANAGER_H_
#define KUPDATE_STANDIN_COM_MANAGER_H_

#include "standin/service.h"

struct IClassFactory;

namespace standin {

/// Makes managers for clients; "CreateInstance" is a call that the control file can fail. The
/// caller owns one reference to the result. The factory itself keeps no server alive.
IClassFactory* NewManagerFactory(Service& service);

}  // namespace standin

#endif  // KUPDATE_STANDIN_COM_MANAGER_H_
