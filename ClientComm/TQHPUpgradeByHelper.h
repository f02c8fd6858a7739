#pragma once

#include <string_view>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/platform/error.h"

/// Implemented by a host that lets the helper upgrade the product. `productWillUpgrade` is
/// optional: a class that does not override it is never told and owes no answer.
class CLIENTCOMM_EXPORT TQHPProductUpgradeCallBackDelegate {
 public:
  /// Whether the delegate wants the call named by `selector`, "productWillUpgrade:"; it is asked
  /// before each call. Override it only to refuse calls at some times: a class without
  /// `productWillUpgrade` needs nothing.
  virtual bool respondsToSelector(std::string_view selector) const;

  /// Calls `productWillUpgrade`, for the proxy. The delegate may be gone after it.
  /// @return whether the delegate's class overrides it.
  bool tell(const clientcomm::Error* error);

 protected:
  ~TQHPProductUpgradeCallBackDelegate() = default;

 private:
  /// The helper is about to upgrade the product; the host answers with `productReadyToUpgrade`.
  /// Private, so that no override can call this one; an override may be public.
  /// @param error null, or what the helper reported instead; valid during the call.
  virtual void productWillUpgrade(const clientcomm::Error* error);
};

/// Asks the helper for upgrades and receives its question whether the product is ready.
class CLIENTCOMM_EXPORT TQHPUpgradeByHelper : public TQHPAppEventBase {
 public:
  /// The one object, made on first use and never destroyed.
  static TQHPUpgradeByHelper& share();

  /// Registers the new object for the helper's callback, in place of an earlier one.
  TQHPUpgradeByHelper();

  /// The class by which the process's registry knows it.
  static const clientcomm::Class& staticClass();
  const clientcomm::Class& isa() const override { return staticClass(); }

  /// The host's listener, or null.
  TQHPProductUpgradeCallBackDelegate* productUpgradeDelegate() const;
  /// The same under the name that the controller uses.
  TQHPProductUpgradeCallBackDelegate* getProductUpgradeDelegate() const;
  /// Sets the host's listener. It is not kept alive: set null, or another one, before it is
  /// destroyed. Null drops the callbacks.
  void setProductUpgradeDelegate(TQHPProductUpgradeCallBackDelegate* delegate);

  /// Asks the helper to look for an upgrade and carry it out. @return the send's own status.
  OSErr productUpgrade(const clientcomm::OptionalString& productID,
                       const clientcomm::OptionalString& versionID);

  /// Answers the helper's callback; "1", "0" or "ignore". The next callback reaches the delegate
  /// again, also when the send failed. @return the send's own status.
  OSErr productReadyToUpgrade(const clientcomm::OptionalString& productID,
                              const clientcomm::OptionalString& versionID,
                              const clientcomm::OptionalString& ready);

  /// The helper's callback: an upgrade is about to happen, or has failed with a code other than 0.
  /// One that comes while the delegate still owes an answer is answered "ignore".
  /// @return 0, or the status of the "ignore".
  /// @throws clientcomm::InvalidArgumentException for a code other than 0 without a description.
  OSErr productUpgradeCallBack(const clientcomm::OptionalString& unused1,
                               const clientcomm::OptionalString& unused2,
                               const clientcomm::OptionalString& code,
                               const clientcomm::OptionalString& description);

 private:
  struct State;
};
