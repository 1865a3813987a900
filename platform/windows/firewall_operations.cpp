// The Windows firewall through COM.
#include "platform/windows/firewall_operations.h"

#include <netfw.h>
#include <oleauto.h>

#include <cstdarg>
#include <cstdio>

#include "foundation/convert.h"
#include "foundation/errors.h"

namespace {

// The firewall's protocol numbers; "any" is missing from some headers.
const int kProtocolAny = 256;
const int kProtocolTcp = 6;
const int kProtocolUdp = 17;

const GUID kClsidNetFwMgr = {0x304CE942, 0x6E39, 0x40D8, {0x94, 0x3A, 0xB9, 0x13, 0xC4, 0x0C, 0x9C, 0xD4}};
const GUID kIidNetFwMgr = {0xF7898AF5, 0xCAC4, 0x4632, {0xA2, 0xEC, 0xDA, 0x06, 0xE5, 0x11, 0x1A, 0xF2}};
const GUID kClsidAuthorizedApplication = {0xEC9846B3, 0x2762, 0x4A6B, {0xA2, 0x14, 0x6A, 0xCB, 0x60, 0x34, 0x62, 0xD2}};
const GUID kIidAuthorizedApplication = {0xB5E64FFA, 0xC2C5, 0x444E, {0xA3, 0x01, 0xFB, 0x5E, 0x00, 0x01, 0x80, 0x50}};
const GUID kClsidOpenPort = {0x0CA545C6, 0x37AD, 0x4A6C, {0xBF, 0x92, 0x9F, 0x76, 0x10, 0x06, 0x7E, 0xF5}};
const GUID kIidOpenPort = {0xE0483BA0, 0x47FF, 0x4D9C, {0xA6, 0xD6, 0x77, 0x41, 0xD0, 0xB1, 0x95, 0xF7}};

[[noreturn]] void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));
void fail(const char* format, ...) {
  char text[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  throw QUtils::GenericError(text);
}

// A BSTR of a UTF-8 text, freed on every way out of the scope.
class Bstr {
 public:
  explicit Bstr(const char* text) {
    QUtils::TextConverter converter(text);
    value = SysAllocString(converter.wide());
  }
  ~Bstr() { SysFreeString(value); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  BSTR get() const { return value; }

 private:
  BSTR value;
};

// Releases a COM interface when the scope ends.
template <typename T>
class Held {
 public:
  Held() : pointer(nullptr) {}
  ~Held() {
    if (pointer) pointer->Release();
  }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  T** out() { return &pointer; }
  T* operator->() const { return pointer; }
  T* get() const { return pointer; }

 private:
  T* pointer;
};

}  // namespace

FirewallOperations::FirewallOperations() : initialized(0), comResult(E_FAIL), profile(nullptr) {
  connect();
  initialized = 1;
}

void FirewallOperations::connect() {
  INetFwMgr* manager = nullptr;
  INetFwPolicy* policy = nullptr;
  try {
    comResult = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
    // A thread whose model was set before keeps it; there is then nothing
    // of ours to undo, as the result is negative.
    if (FAILED(comResult) && comResult != RPC_E_CHANGED_MODE)
      fail("COM Interface initialization failed! Error(%d)", static_cast<int>(comResult));
    HRESULT result = CoCreateInstance(kClsidNetFwMgr, nullptr, CLSCTX_INPROC_SERVER, kIidNetFwMgr,
                                      reinterpret_cast<void**>(&manager));
    if (FAILED(result)) fail("CoCreateInstance failed! Error(%d)", static_cast<int>(result));
    result = manager->get_LocalPolicy(&policy);
    if (FAILED(result)) fail("Getting Local policy failed! Error(%d)", static_cast<int>(result));
    result = policy->get_CurrentProfile(&profile);
    if (FAILED(result)) fail("Getting Current profile failed! Error(%d)", static_cast<int>(result));
  } catch (const QUtils::GenericError&) {
    if (policy) policy->Release();
    if (manager) manager->Release();
    if (profile) profile->Release();
    profile = nullptr;
    if (comResult >= 0) CoUninitialize();
    comResult = -1;
    throw;
  }
  policy->Release();
  manager->Release();
}

void FirewallOperations::release() {
  if (!initialized) return;
  if (profile) profile->Release();
  profile = nullptr;
  if (comResult >= 0) {
    CoUninitialize();
    comResult = -1;
  }
}

void FirewallOperations::checkInitialized() {
  if (!initialized || !profile) fail("Firewall Operations is not properly initialized!");
}

int FirewallOperations::getProtocolNumber(uint8_t protocols) {
  switch (protocols & 3) {
    case 3:
      return kProtocolAny;
    case 1:
      return kProtocolTcp;
    case 2:
      return kProtocolUdp;
    default:
      fail("Invalid firewall protocol or none specified!");
  }
}

bool FirewallOperations::appIsEnabled(const char* path) {
  checkInitialized();
  if (!path) fail("Invalid input arguments - FirewallOperations::appIsEnabled()");
  Held<INetFwAuthorizedApplications> applications;
  HRESULT result = profile->get_AuthorizedApplications(applications.out());
  if (FAILED(result)) fail("Getting Authorized Applications failed! Error(%d)", static_cast<int>(result));
  Bstr name(path);
  Held<INetFwAuthorizedApplication> application;
  if (FAILED(applications->Item(name.get(), application.out()))) return false;
  VARIANT_BOOL enabled = VARIANT_FALSE;
  result = application->get_Enabled(&enabled);
  if (FAILED(result)) fail("Getting Application Enabled call failed! Error(%d)", static_cast<int>(result));
  return enabled != VARIANT_FALSE;
}

void FirewallOperations::addApplication(const char* path, const char* name) {
  checkInitialized();
  if (!path || !name) fail("Invalid input arguments - FirewallOperations::addApplication()");
  if (appIsEnabled(path)) return;
  Held<INetFwAuthorizedApplications> applications;
  HRESULT result = profile->get_AuthorizedApplications(applications.out());
  if (FAILED(result)) fail("Getting Authorized Applications failed! Error(%d)", static_cast<int>(result));
  Held<INetFwAuthorizedApplication> application;
  result = CoCreateInstance(kClsidAuthorizedApplication, nullptr, CLSCTX_INPROC_SERVER, kIidAuthorizedApplication,
                            reinterpret_cast<void**>(application.out()));
  if (FAILED(result)) fail("CoCreateInstance failed for adding new application! Error(%d)", static_cast<int>(result));
  Bstr image(path);
  result = application->put_ProcessImageFileName(image.get());
  if (FAILED(result)) fail("Putting process image file name failed! Error(%d)", static_cast<int>(result));
  Bstr title(name);
  result = application->put_Name(title.get());
  if (FAILED(result)) fail("Putting application name failed! Error(%d)", static_cast<int>(result));
  if (FAILED(applications->Add(application.get()))) fail("Adding the application %s failed!", name);
}

void FirewallOperations::removeApplication(const char* path) {
  checkInitialized();
  if (!path) fail("Invalid input arguments - FirewallOperations::removeApplication()");
  Held<INetFwAuthorizedApplications> applications;
  if (FAILED(profile->get_AuthorizedApplications(applications.out()))) fail("Getting Authorized Applications failed!");
  Bstr image(path);
  if (FAILED(applications->Remove(image.get()))) fail("Removing application %s", path);
}

bool FirewallOperations::portIsEnabled(uint32_t port, uint8_t protocols) {
  checkInitialized();
  Held<INetFwOpenPorts> ports;
  HRESULT result = profile->get_GloballyOpenPorts(ports.out());
  if (FAILED(result)) fail("Getting Globally opened ports failed! Error(%d)", static_cast<int>(result));
  Held<INetFwOpenPort> open;
  if (FAILED(ports->Item(static_cast<LONG>(port), static_cast<NET_FW_IP_PROTOCOL>(getProtocolNumber(protocols)),
                         open.out())))
    return false;
  VARIANT_BOOL enabled = VARIANT_FALSE;
  result = open->get_Enabled(&enabled);
  if (FAILED(result)) fail("Retrieving enabled status for port failed! Error(%d)", static_cast<int>(result));
  return enabled != VARIANT_FALSE;
}

void FirewallOperations::addPort(uint32_t port, uint8_t protocols, const char* name) {
  checkInitialized();
  if (!name) fail("Invalid input arguments - FirewallOperations::addPort()");
  if (portIsEnabled(port, protocols)) return;
  Held<INetFwOpenPorts> ports;
  HRESULT result = profile->get_GloballyOpenPorts(ports.out());
  if (FAILED(result)) fail("Getting globally open ports failed! Error(%d)", static_cast<int>(result));
  Held<INetFwOpenPort> open;
  result = CoCreateInstance(kClsidOpenPort, nullptr, CLSCTX_INPROC_SERVER, kIidOpenPort,
                            reinterpret_cast<void**>(open.out()));
  if (FAILED(result)) fail("CoCreateInstance failed for creating new port! Error(%d)", static_cast<int>(result));
  result = open->put_Port(static_cast<LONG>(port));
  if (FAILED(result))
    fail("Putting port failed for port %d! Error(%d)", static_cast<int>(port), static_cast<int>(result));
  result = open->put_Protocol(static_cast<NET_FW_IP_PROTOCOL>(getProtocolNumber(protocols)));
  if (FAILED(result))
    fail("Putting protocol failed for port %ld! Error(%d)", static_cast<long>(port), static_cast<int>(result));
  Bstr title(name);
  result = open->put_Name(title.get());
  if (FAILED(result)) fail("Putting name to port rule failed! Error(%d)", static_cast<int>(result));
  result = ports->Add(open.get());
  if (FAILED(result)) fail("Adding the port %d failed! Error(%d)", static_cast<int>(port), static_cast<int>(result));
}

void FirewallOperations::removePort(uint32_t port, uint8_t protocols) {
  checkInitialized();
  Held<INetFwOpenPorts> ports;
  HRESULT result = profile->get_GloballyOpenPorts(ports.out());
  if (FAILED(result)) fail("Getting globally open ports failed! Error(%d)", static_cast<int>(result));
  result = ports->Remove(static_cast<LONG>(port), static_cast<NET_FW_IP_PROTOCOL>(getProtocolNumber(protocols)));
  if (FAILED(result)) fail("Removing port %ld! Error (%d)", static_cast<long>(port), static_cast<int>(result));
}
