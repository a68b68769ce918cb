"""All cases of the lab by name, `group.case`."""
import bridge_cases
import dhcp4_cases
import dhcp6_cases
import pppoe_cases
import reconfigure_cases
import vlan_cases

GROUPS = {"dhcp4": dhcp4_cases, "dhcp6": dhcp6_cases, "pppoe": pppoe_cases, "vlan": vlan_cases,
          "reconfigure": reconfigure_cases, "bridge": bridge_cases}
CASES = {f"{group}.{name}": case for group, module in GROUPS.items() for name, case in module.CASES.items()}
