#include "examples/helper/application.h"

int main() { return sample::Application::shared().run(); }
