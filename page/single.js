"use strict";

// A single camera over the wall: its picture as large as fits, its events, its editor.

class Single {
  // `wall` has open(name) and close() by the page's address, acknowledge(camera), and drawSingle().
  constructor(wall) {
    this.wall = wall;
    this.camera = null;
    this.dialog = byId("single");
    // At once, so that it is in the frame in which the dialog opens.
    this.picture = new Picture(byId("single-picture"), () => this.wall.drawSingle());
    this.picture.svg.setAttribute("role", "img");
    const handles = this.picture.element.appendChild(document.createElementNS(SVG, "svg"));
    handles.classList.add("editor");
    this.editor = new Editor(handles, byId("single-panel"));
    this.list = byId("single-events").querySelector("ol");
    byId("single-close").onclick = () => this.wall.close();
    byId("single-acknowledge").onclick = () => this.wall.acknowledge(this.camera);
    byId("single-edit").onclick = () => this.edit(!this.editor.isOpen);
    this.dialog.oncancel = event => {
      event.preventDefault(); // the address closes it
      if (!this.editor.isOpen) return this.wall.close();
      this.edit(false);
      byId("single-edit").focus();
    };
  }

  open(camera, shortName) {
    if (this.camera === camera) return;
    this.edit(false);
    this.camera = camera;
    this.listed = null;
    setText(byId("single-name"), shortName);
    byId("single-name").title = camera.name;
    this.picture.svg.setAttribute("aria-label", `What ${shortName} sees`);
    if (!this.dialog.open) this.dialog.showModal();
  }

  close() {
    if (!this.camera) return;
    this.edit(false);
    this.camera = null;
    this.dialog.close();
  }

  edit(isOn) {
    if (isOn && !this.camera.scene) return;
    if (isOn) this.editor.open(this.edited = this.camera.scene);
    else if (this.editor.isOpen) this.editor.close();
    this.dialog.classList.toggle("editing", isOn);
    byId("single-edit").setAttribute("aria-pressed", String(isOn));
    byId("single-panel").hidden = !isOn;
    byId("single-events").hidden = isOn;
  }

  show(now, { text, className, badges }) {
    const { camera } = this;
    this.dialog.className = `${className}${this.editor.isOpen ? " editing" : ""}`;
    setText(byId("single-state"), text);
    setText(byId("single-badges"), badges);
    setHidden(byId("single-acknowledge"), !this.wall.needsAcknowledging(camera), byId("single-close"));
    byId("single-edit").disabled = !camera.scene;
    if (this.editor.isOpen && camera.scene && camera.scene !== this.edited)
      this.editor.follow(this.edited = camera.scene);
    this.picture.draw(camera, now, true);
    if (this.listed !== camera.eventCount) this.listEvents();
  }

  listEvents() {
    this.listed = this.camera.eventCount;
    this.list.replaceChildren(...this.camera.events.map(({ time, text }) => {
      const item = document.createElement("li");
      setText(made("time", "", item), timeText(time));
      item.append(text);
      return item;
    }));
    if (!this.camera.events.length) setText(made("li", "", this.list), "No events yet.");
  }
}
