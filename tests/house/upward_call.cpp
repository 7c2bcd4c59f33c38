// A low room that calls a high one behind a forward declaration: it compiles, and must not link.
namespace rcmd {

struct RcmContext;
int do_rcm_register(RcmContext* context);

int call_upward(RcmContext* context) {
  return do_rcm_register(context);
}

} // namespace rcmd
