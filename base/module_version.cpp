/// A program takes a module of its own version only: what is passed between them has no fixed layout.
extern "C" [[gnu::visibility("default")]] const char lidcam_module_version[];
const char lidcam_module_version[] = LIDCAM_VERSION;
