// Puts a host's frames into VLANs and takes them out again: the kernel need not have VLAN devices. OUTER and INNER are
// set when it is compiled; INNER 0 is one tag.
struct __sk_buff;

static long (*const push_tag)(struct __sk_buff*, unsigned short tpid, unsigned short tci) = (void*)18;
static long (*const pop_tag)(struct __sk_buff*) = (void*)19;

#define NETWORK_ORDER(x) ((unsigned short)((x) << 8 | (x) >> 8))
#define ON 0 // TC_ACT_OK

__attribute__((section("push"), used)) int push_tags(struct __sk_buff* frame) {
  if (INNER != 0) push_tag(frame, NETWORK_ORDER(0x8100), INNER);
  push_tag(frame, NETWORK_ORDER(0x8100), OUTER);
  return ON;
}

__attribute__((section("pop"), used)) int pop_tags(struct __sk_buff* frame) {
  pop_tag(frame);
  if (INNER != 0) pop_tag(frame);
  return ON;
}

__attribute__((section("license"), used)) char license_text[] = "GPL";
