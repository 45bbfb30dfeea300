// Debian builds VTK for X, and with it GLEW, its loader of OpenGL functions. EGL's surfaceless platform gives a
// context where there is no display at all, which VTK draws into as into one of a foreign toolkit. GLEW then
// loads every function, but ends with the complaint that there is no GLX display, upon which VTK gives up: the
// complaint is of no consequence here, so glewInit is put in front of the library's own and forgives it.
#include "offscreen.hpp"

#include "failure.hpp"

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <dlfcn.h>

static const unsigned glew_no_glx_display = 4;

extern "C" __attribute__((visibility("default"))) unsigned glewInit()
{
    using init_func = unsigned (*)();
    const auto init = reinterpret_cast<init_func>(dlsym(RTLD_NEXT, "glewInit"));
    if (init == nullptr) return 1;
    const unsigned result = init();
    return result == glew_no_glx_display ? 0 : result;
}

offscreen_context::offscreen_context() : display(EGL_NO_DISPLAY), context(EGL_NO_CONTEXT)
{
    const auto get_display =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (get_display != nullptr)
        display = get_display(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (display == EGL_NO_DISPLAY || eglInitialize(display, nullptr, nullptr) == EGL_FALSE)
        throw failure("no OpenGL without a display: EGL's surfaceless platform is missing (Debian packages "
                      "libegl1 and libgl1-mesa-dri bring it)");
    const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                             EGL_NONE};
    const EGLint version[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 2, EGL_NONE};
    EGLConfig config;
    EGLint nconfigs = 0;
    if (eglBindAPI(EGL_OPENGL_API) == EGL_TRUE &&
        eglChooseConfig(display, wanted, &config, 1, &nconfigs) == EGL_TRUE && nconfigs > 0)
        context = eglCreateContext(display, config, EGL_NO_CONTEXT, version);
    if (context == EGL_NO_CONTEXT ||
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context) == EGL_FALSE) {
        eglTerminate(display);
        throw failure("no OpenGL 3.2 without a display (Debian package libgl1-mesa-dri brings it)");
    }
}

offscreen_context::~offscreen_context()
{
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(display, context);
    eglTerminate(display);
}
