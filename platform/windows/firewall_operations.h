// FirewallOperations: a thin layer over the Windows firewall's COM
// interfaces (INetFwMgr and its family). It adds and removes exceptions of
// the current profile: a program that may accept connections, and a port
// open to everyone. An object lives for one call: the constructor connects
// (COM on this thread, the current profile) and release() lets go again;
// there is no destructor that does it. Every operation throws GenericError
// with the text of what failed.
#ifndef QLUX_PLATFORM_WINDOWS_FIREWALL_OPERATIONS_H_
#define QLUX_PLATFORM_WINDOWS_FIREWALL_OPERATIONS_H_

#include <windows.h>

#include <cstdint>

struct INetFwProfile;

class FirewallOperations {
 public:
  FirewallOperations();
  FirewallOperations(const FirewallOperations&) = delete;
  FirewallOperations& operator=(const FirewallOperations&) = delete;

  void release();

  bool appIsEnabled(const char* path);
  // Nothing is done for a program that is listed and enabled.
  void addApplication(const char* path, const char* name);
  void removeApplication(const char* path);
  // `protocols`: bit 0 TCP, bit 1 UDP; both make one rule for any protocol.
  bool portIsEnabled(uint32_t port, uint8_t protocols);
  void addPort(uint32_t port, uint8_t protocols, const char* name);
  void removePort(uint32_t port, uint8_t protocols);

  // The firewall's protocol number for a mask; throws for a mask of 0.
  static int getProtocolNumber(uint8_t protocols);

 private:
  void connect();
  void checkInitialized();

  int initialized;
  HRESULT comResult;
  INetFwProfile* profile;
};

#endif  // QLUX_PLATFORM_WINDOWS_FIREWALL_OPERATIONS_H_
