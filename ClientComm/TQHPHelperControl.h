#pragma once

#include <string_view>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/platform/error.h"

/// Receives the notices of the helper. Both methods are required.
class CLIENTCOMM_EXPORT TQHPHelperControlCallBackDelegate {
 public:
  /// Whether the delegate wants the call named by `selector`, "willHelperExit" or
  /// "didCheckServerOpen::"; it is asked before each call. Override it only to refuse calls.
  virtual bool respondsToSelector(std::string_view selector) const;

  /// The helper is about to exit.
  virtual void willHelperExit() = 0;

  /// The helper has checked its server.
  /// @param isOpen whether calls to the helper are of use.
  /// @param error null, or what the helper reported; valid during the call.
  virtual void didCheckServerOpen(bool isOpen, const clientcomm::Error* error) = 0;

 protected:
  ~TQHPHelperControlCallBackDelegate() = default;
};

/// The library's end of the helper's life-cycle commands and notices. No command waits for an
/// answer: 0 says that it was handed over, and for `isAlive` this is the answer itself.
class CLIENTCOMM_EXPORT TQHPHelperControl : public TQHPAppEventBase {
 public:
  /// The one object, made on first use and never destroyed.
  static TQHPHelperControl& share();

  /// Registers the new object for the helper's notices, in place of an earlier one.
  TQHPHelperControl();

  /// The class by which the process's registry knows it.
  static const clientcomm::Class& staticClass();
  const clientcomm::Class& isa() const override { return staticClass(); }

  /// The receiver of the notices, or null.
  TQHPHelperControlCallBackDelegate* helperCtrlDelegate() const;
  /// Sets the receiver of the notices. It is not kept alive: set null, or another one, before it is
  /// destroyed. Null drops the notices.
  void setHelperCtrlDelegate(TQHPHelperControlCallBackDelegate* delegate);

  /// Asks whether the helper can be reached.
  /// @return 0 when it runs, `procNotFound` when it does not, else the send's own status.
  OSErr isAlive(const clientcomm::OptionalString& productID,
                const clientcomm::OptionalString& prodeuctVersion);
  /// Tells the helper to hide. @return the send's own status.
  OSErr hide(const clientcomm::OptionalString& productID,
             const clientcomm::OptionalString& prodeuctVersion);
  /// Tells the helper to show itself. @return the send's own status.
  OSErr show(const clientcomm::OptionalString& productID,
             const clientcomm::OptionalString& prodeuctVersion);
  /// Asks the helper to end; used when the installed copy is being replaced.
  /// @return 0 when the event was handed over, which does not mean that the helper has acted on
  ///         it; otherwise the send's own status (`procNotFound` when no helper is running).
  OSErr exitHelper(const clientcomm::OptionalString& productID,
                   const clientcomm::OptionalString& productVersion);
  /// Tells the helper that the product no longer needs it. @return the send's own status.
  OSErr stop(const clientcomm::OptionalString& productID,
             const clientcomm::OptionalString& prodeuctVersion);
  /// Tells the helper to work for the product. @return the send's own status.
  OSErr start(const clientcomm::OptionalString& productID,
              const clientcomm::OptionalString& prodeuctVersion);

  /// Notice from the helper: it is about to exit.
  /// @return 0.
  OSErr helperExitNotify(const clientcomm::OptionalString& unused);
  /// Notice from the helper: its server is open or not, with an error where `code` is not 0.
  /// @return 0.
  /// @throws clientcomm::InvalidArgumentException for a code other than 0 without a description.
  OSErr checkServerOpenCallBack(const clientcomm::OptionalString& unused,
                                const clientcomm::OptionalString& isOpen,
                                const clientcomm::OptionalString& code,
                                const clientcomm::OptionalString& description);

  /// Writes the effective "EnableAD" of the host into its bundle's first property list.
  /// @return false only when the file could not be written.
  bool saveEnableADToPlistFile();

 private:
  struct State;
};
