// Light or dark, as Cockpit's own pages are: what was chosen in its menu, else what the browser is.

const dark = matchMedia("(prefers-color-scheme: dark)");

function follow() {
  const chosen = localStorage.getItem("shell:style") ?? "auto";
  const isDark = chosen === "dark" || (chosen === "auto" && dark.matches);
  document.documentElement.classList.toggle("dark", isDark);
}

// From now on.
export function followTheme() {
  follow();
  dark.addEventListener("change", follow);
  addEventListener("storage", event => { if (event.key === "shell:style") follow(); });
  addEventListener("cockpit-style", follow);
}
