// The inventory sections after SYSTEM: environment, server tuning, devices, storage,
// networking and packages. Each copies platform command output into the main log, logs its
// failures and carries on; none of them exits or records facts in the settings document.
#pragma once

/// "printenv", copied; a failure to start it ends the section without its completed line.
void enumerateEnvironment();
/// "ulimit -a" under the "ulimit:" heading; same failure rule as the environment.
void enumerateServerTuning();
/// SCSI, block and loop devices; a command that cannot be started ends the section there.
void enumerateDevices();
/// "df" with the file-system types; then /etc/fstab joins the archive list.
void enumerateStorage();

/// Adapters, interfaces, proxy settings and network statistics; then /etc/hosts joins the
/// archive list.
void enumerateNetworking();
/// Ethernet and network controllers with their "lspci -v" details.
void enumerateNetworkingAdapters();
/// "ip addr show", copied.
void enumerateNetworkingInterfaces();
/// The proxy lines of /etc/environment, or a line saying there are none or no data.
void enumerateNetworkingProxySettings();
/// "netstat -atup" into logs/gatr_netstat.log, which joins the archive list when complete.
void enumerateNetworkingStatistics();

/// Enabled repositories, then the installed packages file.
void enumeratePackages();
/// The "Repo-" lines of a verbose "yum repolist enabled".
void enumeratePackagesRepositories();
/// Every installed RPM into logs/gatr_packages.log, which joins the archive list.
void enumeratePackagesInstalled();
