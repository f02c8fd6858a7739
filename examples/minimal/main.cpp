// The smallest helper that a host can live with: it can be reached, gives a client ID, and ends
// when it is told to.

#include <ClientComm/TQHPAppEventBase.h>
#include <ClientComm/TQHPAppleEventProcesser.h>
#include <ClientComm/platform/runtime.h>
#include <glib.h>

using platform::method;

static GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);

class Control : public TQHPAppEventBase {
 public:
  static const platform::Class& wireClass();
  const platform::Class& isa() const override { return wireClass(); }

  void isAlive(const OptionalString& /*productID*/, const OptionalString& /*version*/) {}
  void exitHelper(const OptionalString& /*productID*/, const OptionalString& /*version*/) {
    g_main_loop_quit(loop);
  }
};

const platform::Class& Control::wireClass() {
  static const auto* const wireClass =
      new platform::Class("TQHPHelperControl", &platform::makeShared<Control>,
                          {method<&Control::isAlive>("isAlive:prodeuctVersion:"),
                           method<&Control::exitHelper>("exitHelper:productVersion:")});
  return *wireClass;
}

class Query : public TQHPAppEventBase {
 public:
  static const platform::Class& wireClass();
  const platform::Class& isa() const override { return wireClass(); }

  OptionalString clientID() { return "one-for-all"; }
};

const platform::Class& Query::wireClass() {
  static const auto* const wireClass =
      new platform::Class("TQHPGetDataByHelper", &platform::makeShared<Query>,
                          {method<&Query::clientID>("clientIDFormHelper")});
  return *wireClass;
}

int main() {
  platform::registerClass(Control::wireClass());
  platform::registerClass(Query::wireClass());
  TQHPAppleEventProcesser::share();
  g_main_loop_run(loop);
}
