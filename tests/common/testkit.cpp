// Anchor of the shared test helpers library; the helpers live beside it.
namespace portwren::testkit {
int Anchor() { return 0; }
}  // namespace portwren::testkit
