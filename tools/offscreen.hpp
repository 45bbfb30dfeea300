// An OpenGL context without window or display.
#pragma once

// Makes one current on this thread while it lives. Throws failure.
class offscreen_context {
  public:
    offscreen_context();
    ~offscreen_context();
    offscreen_context(const offscreen_context &) = delete;
    offscreen_context &operator=(const offscreen_context &) = delete;

  private:
    void *display, *context;
};
