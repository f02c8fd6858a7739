// A game on SDL 2, which draws frame after frame and waits for no descriptor.

#define SDL_MAIN_HANDLED
#include <ClientComm/event_loop.h>
#include <SDL.h>

#include "examples/event_loops/product.h"

namespace {

constexpr Uint32 kFrameTime = 16;  // ms

bool wantsToQuit() {
  bool wants = false;
  for (SDL_Event event; SDL_PollEvent(&event) != 0;) wants = wants || event.type == SDL_QUIT;
  return wants;
}

}  // namespace

int main() {
  if (clientcomm::openEventLoop() < 0) return 1;  // before anything else of the library
  SDL_SetMainReady();
  if (SDL_Init(SDL_INIT_VIDEO) != 0) return 1;
  SDL_Window* const window = SDL_CreateWindow("Game", 0, 0, 320, 240, 0);
  const sample::Product product;
  while (!wantsToQuit()) {
    clientcomm::runEventLoop();  // once a frame; cheap when nothing is due
    SDL_FillRect(SDL_GetWindowSurface(window), nullptr, SDL_GetTicks() / kFrameTime % 256);
    SDL_UpdateWindowSurface(window);
    SDL_Delay(kFrameTime);
  }
  SDL_Quit();
}
