// The smallest helper that a host can live with: it can be reached, gives a client ID, and ends
// when it is told to.

#include <ClientComm/TQHPAppEventBase.h>
#include <ClientComm/TQHPAppleEventProcesser.h>
#include <ClientComm/platform/runtime.h>
#include <glib.h>

using clientcomm::method;
using clientcomm::OptionalString;

static GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);

class Control : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  void isAlive(const OptionalString& /*productID*/, const OptionalString& /*version*/) {}
  void exitHelper(const OptionalString& /*productID*/, const OptionalString& /*version*/) {
    g_main_loop_quit(loop);
  }
};

const clientcomm::Class& Control::wireClass() {
  static const auto* const wireClass =
      new clientcomm::Class("TQHPHelperControl", &clientcomm::makeShared<Control>,
                            {method<&Control::isAlive>("isAlive:prodeuctVersion:"),
                             method<&Control::exitHelper>("exitHelper:productVersion:")});
  return *wireClass;
}

class Query : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  OptionalString clientID() { return "one-for-all"; }
};

const clientcomm::Class& Query::wireClass() {
  static const auto* const wireClass =
      new clientcomm::Class("TQHPGetDataByHelper", &clientcomm::makeShared<Query>,
                            {method<&Query::clientID>("clientIDFormHelper")});
  return *wireClass;
}

int main() {
  clientcomm::registerClass(Control::wireClass());
  clientcomm::registerClass(Query::wireClass());
  TQHPAppleEventProcesser::share();
  g_main_loop_run(loop);
}
