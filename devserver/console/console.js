// The agents' page: lists the conversations, shows one, and sends replies.
// It polls the server, so new messages show up within a couple of seconds;
// each poll fetches only the messages after the last one shown.
"use strict";

const api = "/console/api";
const pollInterval = 1500;
let selected = null;
// The selected conversation's messages on screen: the rows of the first and
// the last, and whether the server has earlier ones.
let shown = { loaded: false, first: null, last: 0 };

const $ = (id) => document.getElementById(id);

function element(tag, className, text) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  if (text !== undefined) node.textContent = text;
  return node;
}

async function getJSON(path) {
  const reply = await fetch(api + path, { cache: "no-store" });
  const body = await reply.json();
  if (!reply.ok) throw new Error(body.error || reply.statusText);
  return body;
}

function displayName(conversation) {
  return conversation.userName || conversation.userId || conversation.installationId || "Conversation " + conversation.id;
}

function formatDate(seconds) {
  return new Date(seconds * 1000).toLocaleString();
}

// The map tile under a place at zoom 15, drawn by this server.
function tileFor(latitude, longitude) {
  const zoom = 15, n = 2 ** zoom;
  const x = Math.floor((longitude + 180) / 360 * n);
  const radians = latitude * Math.PI / 180;
  const y = Math.floor((1 - Math.log(Math.tan(radians) + 1 / Math.cos(radians)) / Math.PI) / 2 * n);
  return `/tiles/${zoom}/${x}/${y}.png`;
}

function renderConversations(conversations) {
  const list = $("conversations");
  list.replaceChildren();
  $("no-conversations").hidden = conversations.length > 0;
  for (const conversation of conversations) {
    const item = element("li");
    item.dataset.id = conversation.id;
    if (conversation.id === selected?.id) item.classList.add("selected");
    if (conversation.unread > 0) item.append(element("span", "unread", String(conversation.unread)));
    item.append(element("div", "name", displayName(conversation)));
    const last = conversation.lastMessage;
    if (last) {
      const files = (last.attachments || []).length;
      item.append(element("div", "last", last.text || (files ? `${files} file(s)` : last.location ? "a location" : "")));
    }
    item.addEventListener("click", () => select(conversation));
    list.append(item);
  }
  if (selected) selected = conversations.find((c) => c.id === selected.id) || selected;
}

function renderMessage(message) {
  const item = element("li", "message " + message.sender);
  item.dataset.uuid = message.uuid;
  item.dataset.id = message.id;
  const who = message.sender === "user" ? (message.userName || "User") : (message.userName || message.sender);
  const meta = element("div", "meta", `${who} · ${formatDate(message.date)}`);
  if (message.sender !== "user") meta.append(element("span", "seen", message.read ? " · seen" : ""));
  item.append(meta);
  if (message.text) item.append(element("div", "text", message.text));
  if (message.location) {
    const { lat, lng, address } = message.location;
    item.append(element("div", "text", `Location: ${address || ""} (${lat}, ${lng})`));
    const map = element("img");
    map.src = tileFor(lat, lng);
    map.alt = "map";
    item.append(map);
  }
  const files = element("div", "files");
  for (const attachment of message.attachments || []) {
    if (attachment.previewURL) {
      const preview = element("img");
      preview.src = attachment.previewURL;
      preview.alt = attachment.filename;
      files.append(preview);
    }
    const link = element("a", "", `${attachment.filename} (${attachment.contentType}, ${attachment.length || 0} bytes)`);
    link.href = attachment.dataURL;
    link.target = "_blank";
    files.append(link);
  }
  item.append(files);
  if (message.context !== undefined) item.append(element("div", "meta", "Context: " + JSON.stringify(message.context)));
  return item;
}

// "· seen" on the agent's messages the user has read. The server lists the
// latest unread ones; with more of them, everything older counts as unread.
function markSeen(page) {
  const unseen = new Set(page.unseen);
  const oldest = Math.min(...page.unseen);
  for (const mark of $("messages").querySelectorAll(".seen")) {
    const id = Number(mark.closest("li").dataset.id);
    const seen = !unseen.has(id) && !(page.unseenMore && id < oldest);
    mark.textContent = seen ? " · seen" : "";
  }
}

function showEarlierButton(earlier) {
  $("earlier").hidden = !earlier;
}

async function refreshMessages() {
  if (!selected) return;
  const id = selected.id;
  const pane = $("messages-pane");
  for (;;) {
    const query = shown.loaded ? `?after=${shown.last}` : "";
    const page = await getJSON(`/conversations/${id}/messages${query}`);
    if (selected?.id !== id) return;
    const atBottom = pane.scrollTop + pane.clientHeight >= pane.scrollHeight - 8;
    if (!shown.loaded) {
      shown.loaded = true;
      showEarlierButton(page.earlier);
    }
    // Polls and a sent reply may overlap: what is on screen already stays as it is.
    const fresh = page.messages.filter((message) => message.id > shown.last);
    $("messages").append(...fresh.map(renderMessage));
    if (fresh.length) {
      shown.last = fresh.at(-1).id;
      shown.first ??= fresh[0].id;
      if (atBottom) pane.scrollTop = pane.scrollHeight;
    }
    markSeen(page);
    if (!page.later) break;
  }
  if (selected.unread > 0) {
    await fetch(`${api}/conversations/${id}/read`, { method: "POST" });
    selected.unread = 0;
  }
}

async function showEarlier() {
  if (!selected || shown.first === null) return;
  const id = selected.id;
  const page = await getJSON(`/conversations/${id}/messages?before=${shown.first}`);
  if (selected?.id !== id) return;
  const pane = $("messages-pane");
  const fromBottom = pane.scrollHeight - pane.scrollTop;
  $("messages").prepend(...page.messages.map(renderMessage));
  if (page.messages.length) shown.first = page.messages[0].id;
  showEarlierButton(page.earlier);
  markSeen(page);
  pane.scrollTop = pane.scrollHeight - fromBottom;
}

function select(conversation) {
  selected = conversation;
  shown = { loaded: false, first: null, last: 0 };
  $("messages").replaceChildren();
  showEarlierButton(false);
  $("conversation").hidden = false;
  $("conversation-title").textContent = displayName(conversation);
  const details = [
    conversation.userId ? "userId " + conversation.userId : null,
    conversation.installationId ? "installation " + conversation.installationId : null,
    `${conversation.devices} device(s)`,
    "API key " + conversation.apiKey,
    conversation.extra ? "extra " + JSON.stringify(conversation.extra) : null,
  ];
  $("conversation-details").textContent = details.filter(Boolean).join(" · ");
  for (const item of $("conversations").children) item.classList.toggle("selected", Number(item.dataset.id) === conversation.id);
  refreshMessages().catch(showError);
}

function showError(error) {
  const line = $("reply-error");
  line.textContent = String(error.message || error);
  line.hidden = false;
}

async function sendReply(event) {
  event.preventDefault();
  if (!selected) return;
  const text = $("reply-text").value.trim();
  const files = $("reply-file").files;
  if (!text && files.length === 0) return;
  const form = new FormData();
  form.append("text", text);
  form.append("agentName", $("agent-name").value.trim());
  for (const file of files) form.append("file", file, file.name);
  $("reply-send").disabled = true;
  try {
    const reply = await fetch(`${api}/conversations/${selected.id}/messages`, { method: "POST", body: form });
    if (!reply.ok) throw new Error((await reply.json()).error || reply.statusText);
    $("reply-text").value = "";
    $("reply-file").value = "";
    $("reply-error").hidden = true;
    await refreshMessages();
  } catch (error) {
    showError(error);
  } finally {
    $("reply-send").disabled = false;
  }
}

async function poll() {
  try {
    renderConversations((await getJSON("/conversations")).conversations);
    await refreshMessages();
  } catch (error) {
    showError(error);
  }
  setTimeout(poll, pollInterval);
}

$("agent-name").value = localStorage.getItem("agentName") || "";
$("agent-name").addEventListener("change", () => localStorage.setItem("agentName", $("agent-name").value.trim()));
$("reply").addEventListener("submit", sendReply);
$("earlier").addEventListener("click", () => showEarlier().catch(showError));
poll();
