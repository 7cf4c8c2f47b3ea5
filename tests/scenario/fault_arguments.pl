# Arguments for the lab's faults that take one; some for each. If the lab knows the effect of an
# argument, it promises the finding. Loaded with `require`.
use strict;
use warnings;

my @tools = qw(asic_shell_show board_api_probe cfg_render fwd_object_show iface_show ifmgr_show lagmgr_agent_show
  lagmgr_health lagmgr_table_show node_id_convert plat_nodes_show qos_voq_show sw_version_show);
my %arguments = (
    'tool-empty'      => \@tools,
    'tool-missing'    => \@tools,
    'capture-blocked' => [qw(0 BME_PD BM_PI IM_PI lag_pp_port_0_1 lagport_0_0_CPU0 running_cfg showInterfaces show_unit_all_A)],
    'log-full'        => [qw(bundle_health debug delay_delete exception inconsistencies programming_error stale_entries)],
    'file-limit'      => [qw(6000 10000 30000 50000 100000)],    # the console is a file too
    'tmp-full'        => [qw(8 32 64 128 512)],
);

sub arguments_of_fault {
    my ($fault) = @_;
    return @{ $arguments{$fault} or die "which arguments does $fault take?\n" };
}

1;
